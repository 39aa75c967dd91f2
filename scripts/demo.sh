#!/usr/bin/env bash
# Installs what is missing, builds libku, the C demo and the ku tool, runs the
# demo, and then takes a short tour of ku on the sample data in examples/data:
# codecs, JSON, table and INI files, resampling, interface queries, the log,
# and a download from a loopback web server that the tour starts and stops.
#
#   scripts/demo.sh            set up, build, run the demo and the tour
#   scripts/demo.sh --tour     the tour alone, on an existing build
#
# Only the build tools and the library's own dependencies are installed
# (install-deps.sh --demo), and the build in build-demo leaves the tests,
# benchmarks and API reference out, so no test toolchain is needed.
# KU names another ku binary for the tour (default build-demo/tools/ku/ku, or
# build/tools/ku/ku when there is no demo build).
# The tour works on a copy of the sample data in a temporary directory, so
# the repository stays as it is.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

if [[ "${1:-}" != "--tour" ]]; then
  scripts/install-deps.sh --demo
  cmake -S . -B build-demo -G Ninja -DKU_BUILD_TESTS=OFF -DKU_BUILD_BENCH=OFF \
    -DKU_BUILD_EXAMPLES=ON -DKU_BUILD_TOOLS=ON > build-demo.configure.log 2>&1 ||
    { cat build-demo.configure.log; exit 1; }
  cmake --build build-demo -j "$(nproc)" --target demo ku
  build-demo/examples/demo
fi

ku_bin=${KU:-$root/build-demo/tools/ku/ku}
[[ -n ${KU:-} || -x $ku_bin ]] || ku_bin=$root/build/tools/ku/ku
[[ -x $ku_bin ]] || { echo "demo: $ku_bin is not built" >&2; exit 1; }
ku() { "$ku_bin" "$@"; }

work=$(mktemp -d)
server_pid=
cleanup() {
  if [[ -n $server_pid ]]; then
    kill "$server_pid" 2>/dev/null || true
    wait "$server_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
cp "$root"/examples/data/*.json "$root"/examples/data/*.table "$root"/examples/data/*.ini \
   "$root"/examples/data/*.wav "$work"/
cd "$work"

step() { printf '\n== %s\n' "$*"; }
# Shows a command line, runs it, tells its exit status when it failed, and
# then what it did when the command itself prints nothing.
show() {
  printf '$ %s\n' "$1"
  local status=0
  eval "$1" || status=$?
  if ((status != 0)); then printf '(exit status %d)\n' "$status"; fi
  if [[ -n "${2:-}" ]]; then printf '(%s)\n' "$2"; fi
}
has() { ku --help | grep -q "^  $1 "; }
skip() { printf '(ku of this build has no "%s" command yet)\n' "$1"; }

step "ku: the command-line front end of libku"
show 'ku --version'
show 'ku --help'

step "Base64, hex and Triple DES: stdin to stdout, binary-safe"
if has b64; then
  show 'echo "hello, libku" | ku b64 encode'
  show 'echo "aGVsbG8sIGxpYmt1Cg==" | ku b64 decode'
  show 'printf "\x00\xff\x10" | ku hex encode'
  show 'echo "not base64!" | ku b64 decode'
else skip b64; fi
if has des; then
  show 'echo "a secret" | ku des encrypt | ku hex encode'
  show 'echo "a secret" | ku des encrypt | ku des decrypt'
fi

step "JSON: read and change fields of device.json by dotted paths"
if has json; then
  show 'ku json print device.json'
  show 'ku json get device.json network.ip'
  show 'ku json get device.json presets.1.name'
  show 'ku json set device.json volume 50' 'volume replaced and the file saved'
  show 'ku json set device.json network.ntp pool.ntp.org' 'a new text field inside network'
  show 'ku json del device.json presets' 'the presets array removed'
  show 'ku json print device.json'
  show 'ku json get device.json presets'
else skip json; fi

step "Text table: rows of blank-separated cells in interfaces.table"
if has table; then
  show 'ku table show interfaces.table'
  show 'ku table get interfaces.table 2 1'
  show 'ku table set interfaces.table 2 3 up' 'row 2, column 3 replaced; the file is saved without its comments'
  show 'ku table append interfaces.table lo 127.0.0.1 255.0.0.0 up' 'a fourth row'
  show 'ku table delete interfaces.table 1' 'row 1 (wlan0) removed'
  show 'cat interfaces.table'
else skip table; fi

step "INI: read and replace keys of device.ini"
if has ini; then
  show 'ku ini get device.ini audio rate'
  show 'ku ini put device.ini audio rate 16000' 'the line rate=48000 rewritten through device.ini.tmp'
  show 'ku ini get device.ini audio rate'
  show 'ku ini put device.ini audio volume 3' 'put replaces keys, it does not add them'
else skip ini; fi

step "Resampling: chime.wav (8000 Hz stereo) to 16000 Hz mono, integer arithmetic"
if has resample; then
  show 'ku resample chime.wav chime-16k.wav --to 16000 --select mix -v'
  show 'ls -l chime.wav chime-16k.wav | awk "{print \$5, \$NF}"'
else skip resample; fi

step "Network interfaces: facts from the kernel, no traffic"
if has net; then
  show 'ku net if lo'
  show 'ku net local 127.0.0.1'
  show 'ku net local 198.51.100.7'
else skip net; fi
if has sock; then
  show 'ku sock recv ctl.sock --timeout 10 & until [ -S ctl.sock ]; do sleep 0.1; done; ku sock send ctl.sock "volume up"; wait' \
       'one datagram from one ku process to another through the socket file ctl.sock'
fi

step "Download: ku fetch from a web server on 127.0.0.1 that the tour runs"
if has fetch; then
  mkdir www
  cp chime.wav device.ini www/
  python3 -u -m http.server 0 --bind 127.0.0.1 --directory www > server.log 2>&1 &
  server_pid=$!
  port=
  for _ in $(seq 100); do
    port=$(sed -n 's/.*port \([0-9][0-9]*\).*/\1/p' server.log | head -n 1)
    [[ -n $port ]] && break
    sleep 0.1
  done
  if [[ -z $port ]]; then
    echo "demo: the loopback web server did not start:" >&2
    cat server.log >&2
    exit 1
  fi
  echo "(python3 -m http.server serves www/ on 127.0.0.1:$port, process $server_pid)"
  show "ku fetch -i http://127.0.0.1:$port/device.ini"
  show "ku fetch http://127.0.0.1:$port/chime.wav -o fetched.wav --size $(stat -c %s chime.wav)"
  show 'cmp fetched.wav chime.wav && echo "fetched.wav is chime.wav, byte for byte"'
  show "ku fetch http://127.0.0.1:$port/no-such-file"
  kill "$server_pid"
  wait "$server_pid" 2>/dev/null || true
  server_pid=
  echo "(web server stopped)"
  show "ku fetch http://127.0.0.1:$port/chime.wav --timeout 5"
else skip fetch; fi

step "Clocks, strings, the process lock and the log, for scripts"
show 'ku clock --zone 1'
if has str; then
  show 'echo "  Kitchen Speaker  " | ku str upper | ku str trim'
fi
if has lock; then
  if [[ -e /dev/plock ]]; then
    show 'ku lock status'
  else
    echo "(no /dev/plock driver on this machine: ku lock take|release|status report that)"
  fi
fi
show 'ku log debug "tour finished"' 'a log line on stderr, as the library writes them'
show 'ku log err "an error line goes to stderr, with UTC time and the millisecond tick"'

printf '\nTour done. Try "ku COMMAND --help" for each command.\n'
