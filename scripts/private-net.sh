#!/bin/sh
# Runs a command on a network of its own, so that what it registers with
# rpcbind never meets a running station's registrations, nor a test run's:
# new network, mount and process namespaces, loopback up, a private /run
# (where rpcbind keeps its socket and lock; the system log's socket is kept)
# and an rpcbind of its own.  Everything the command starts ends with it.
# Needs root.
#
#   private-net.sh COMMAND [ARG...]
set -eu
if [ "${HERON_PRIVATE_NET:-}" != 1 ]; then
  HERON_PRIVATE_NET=1 exec unshare --net --mount --pid --fork --mount-proc sh "$0" "$@" ||
    { echo "private-net.sh: cannot make namespaces (needs root)" >&2; exit 1; }
fi
keep=$(mktemp -d)
mount --bind /run "$keep"
mount -t tmpfs -o mode=755 tmpfs /run
if [ -d "$keep/systemd" ]; then
  mkdir /run/systemd
  mount --bind "$keep/systemd" /run/systemd
fi
umount "$keep"
rmdir "$keep"
ip link set lo up
rpcbind -f &
tries=0
until rpcinfo -p 127.0.0.1 >/dev/null 2>&1; do
  tries=$((tries + 1))
  if [ $tries -gt 50 ]; then
    echo "private-net.sh: rpcbind did not come up" >&2
    exit 1
  fi
  sleep 0.1
done
"$@"
