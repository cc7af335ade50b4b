# What the tests of the examples share. A test reads this first, with the program as $1, and is
# in an empty folder then; it ends with `finish`.

program=$1
here=$(cd "$(dirname "$0")" && pwd)
room=$(mktemp -d) || exit 1
trap 'rm -rf "$room"' EXIT
trap 'exit 1' HUP INT TERM
cd "$room" || exit 1
export LC_ALL=C.UTF-8
problems=0

wrong() {
  printf 'WRONG: %s\n' "$*"
  problems=$((problems + 1))
}

# run STATUS ARGUMENT...: the outputs go to the files out and err.
run() {
  wanted=$1
  shift
  timeout 60 "$program" "$@" >out 2>err
  got=$?
  [ $got -eq "$wanted" ] || wrong "status $got instead of $wanted: $* ($(cat err))"
}

# has FILE LINE: exactly this line stands in the file once.
has() { [ "$(grep -cFx -e "$2" "$1")" = 1 ] || wrong "$1 lacks: $2 ($(cat "$1"))"; }

# until_true COMMAND...: waits for it, half a minute at most.
until_true() {
  tries=0
  until "$@"; do
    tries=$((tries + 1))
    [ $tries -lt 600 ] || { wrong "waited in vain for: $*"; return 1; }
    sleep 0.05
  done
}

finish() {
  [ $problems -eq 0 ] && echo "all as it should be"
  exit $((problems != 0))
}
