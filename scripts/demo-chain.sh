#!/bin/sh
# The live half of the main job (scripts/demo.sh).  raw_playback runs it on
# the pseudo-terminal it plays into, whose name is the first argument:
# serial_ingest -z supervises Ingest on that port as the scratch site's
# ingest.conf says, Ingest archives the samples and serves them, a live
# client prints some of them calibrated, and ingest_status shows the
# station's counters.  It waits for the line to hang up at the end of the
# playing, then stops the daemon (Ingest outlives it by design, but has
# ended with the line).
#
#   demo-chain.sh PTY BUILD_DIR LIVE_SECONDS
#
# HERON, PROJECT and OPS name the scratch site.  It runs in a process
# namespace of its own (scripts/private-net.sh), so the processes it finds
# by name are its own.
set -u
pty=$1
bin=$2
secs=$3
conf=$HERON/projects/$PROJECT/$OPS/ingest.conf
echo "tern1 - $pty 23040 none 8 1 none local" >"$conf"
# CONFIG_SERVER: the daemon asks for PROJECT and OPS there; nothing answers
# on this host, so it keeps the environment's values without a wait.
PATH=$bin/tools/ingest_server:$PATH CONFIG_SERVER=127.0.0.1 \
  "$bin/ingest/serial_ingest" -z -c "$conf" || exit 1
INGEST_SERVER=127.0.0.1
export INGEST_SERVER
tries=0
until "$bin/tools/ingest_status" tern1 >/dev/null 2>&1; do
  tries=$((tries + 1))
  if [ $tries -gt 50 ]; then
    echo "demo-chain: Ingest did not come up on $pty (see the system log)" >&2
    pkill -INT -f "serial_ingest -z -c $conf"
    exit 1
  fi
  sleep 0.2
done
# The live client runs while ingest_status asks for the counters, so its
# connection shows; its lines are printed after it has ended.
out=$HERON/live-client.csv
timeout -s INT "$secs" "$bin/tools/cal_dump/cal_dump" -l -F CSV u.wind w.wind t.met p.baro >"$out" &
client=$!
sleep $((secs - 1))
echo "-- ingest_status tern1, with the live client connected"
"$bin/tools/ingest_status" tern1
wait $client
echo "-- the live client: cal_dump -l, for $secs seconds (first lines, then every 10th)"
awk 'NR <= 4 || NR % 10 == 0' "$out"
# The line hangs up when the playing ends; Ingest then ends with it.
tries=0
while pgrep -f "^tern1 [0-9]+ $pty\$" >/dev/null && [ $tries -lt 100 ]; do
  tries=$((tries + 1))
  sleep 0.2
done
pkill -INT -f "serial_ingest -z -c $conf"
pkill -TERM -f "^tern1 [0-9]+ $pty\$"
exit 0
