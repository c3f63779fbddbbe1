#!/bin/sh
# Installs the Debian packages the build, the tests and the example need,
# skipping those already present.  Safe to run again.
set -eu
pkgs="build-essential cmake pkg-config libtirpc-dev rpcsvc-proto rpcbind flex bison
      libgtest-dev libbenchmark-dev xxd clang libclang-rt-14-dev python3 procps iproute2 util-linux
      libnetcdf-dev netcdf-bin gnuplot-nox libudunits2-dev python3-xarray python3-netcdf4 python3-dask
      parallel libmicrohttpd-dev chromium"
missing=""
for p in $pkgs; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  echo "installing:$missing"
  if [ "$(id -u)" -ne 0 ]; then SUDO=sudo; else SUDO=; fi
  $SUDO env DEBIAN_FRONTEND=noninteractive apt-get update -qq
  # shellcheck disable=SC2086
  $SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing
fi
