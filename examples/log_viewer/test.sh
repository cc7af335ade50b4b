# Runs log_viewer, given as the first argument, on the log of write_lines, given as the second.
writer=$2
. "$(dirname "$0")/../checks.sh"

numbers() { sed -n 's/.*\[INFO\].line \([0-9]*\) -*\r$/\1/p' "$1"; }
shows() { tail -n 1 shown | grep -q "line $1 "; }

# --- Lines of 1000 bytes over more files than the ring has, each burst after the last was shown.
mkfifo counts
"$writer" ./logs run <counts &
writing=$!
exec 3>counts
"$program" logs run >shown &
viewing=$!
last=0
for count in 1 700 600 1000 1000 1000 1000 1000 1000 1000 1000 1000 1000 300; do
  echo $count >&3
  last=$((last + count))
  until_true shows $last || break
done
kill $viewing
wait $viewing 2>/dev/null
exec 3>&-
wait $writing
seq $last >all
numbers shown | cmp all - || wrong "lines shown: $(numbers shown | wc -l) of $last"
[ "$(wc -l <shown)" = $last ] || wrong "text that is no line"
[ "$(ls logs | wc -l)" = 10 ] || wrong "the ring: $(ls logs)"

# --- What is in the ring, from the oldest on, where dates tell which that is.
newest=$(grep -l "line $last " logs/*)
touch -d '1 minute ago' logs/*
touch "$newest"
run 0 logs run --until-idle 0.2
numbers out >part
[ "$(wc -l <part)" -gt 8000 ] || wrong "a part of the ring: $(wc -l <part) lines"
tail -n "$(wc -l <part)" all | cmp - part || wrong "order in the ring"

# --- No log yet, and half a ring.
run 0 nowhere run --until-idle 0.1
[ ! -s out ] || wrong "lines of no log"
rm logs/*
printf 'b\r\n' >logs/run1.log
printf 'a\r\n' >logs/run0.log
run 0 logs run --until-idle 0.1
[ "$(tr -d '\r' <out)" = 'a
b' ] || wrong "half a ring: $(cat out)"

run 2
run 2 logs run --until-idle
run 2 logs run --lines 3

finish
