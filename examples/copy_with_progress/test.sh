# Runs copy_with_progress, given as the only argument.
. "$(dirname "$0")/../checks.sh"

seq 100000 >source
: >empty
size=$(stat -c %s source)
mkdir folder

run 0 source copy
cmp source copy || wrong "copy"
has out "100 %, $size of $size bytes"
run 0 empty folder/empty
[ -f folder/empty ] && [ ! -s folder/empty ] && [ ! -s out ] || wrong "copy of an empty file"

run 1 empty copy
has err 'copy_with_progress: refused with error code 4'
cmp source copy || wrong "the file that was there"
run 0 --overwrite empty copy
[ -f copy ] && [ ! -s copy ] || wrong "overwritten"

run 1 missing copy2
has err 'copy_with_progress: refused with error code 9'
run 1 source nowhere/copy
has err 'copy_with_progress: failed with result 0x10003'
run 1 source folder/
has err 'copy_with_progress: failed with result 0x10001'
for arguments in '' source 'source copy3 more' '--force source copy3'; do
  run 2 $arguments
done

# --- Ctrl-C while it copies; once more where the copy was over before that came.
head -c 256M /dev/zero >film
for attempt in 1 2 3 4 5 6 7 8 9 10; do
  printf old >there
  "$program" --overwrite film there >out 2>err &
  running=$!
  until ls -l /proc/$running/fd 2>/dev/null | grep -q film || ! kill -0 $running 2>/dev/null; do :; done
  kill -INT $running 2>/dev/null
  wait $running
  got=$?
  [ $got -eq 0 ] || break
done
[ $got -eq 130 ] || wrong "status $got of an interrupted copy"
has err 'copy_with_progress: stopped'
[ "$(cat there)" = old ] || wrong "the old file after an interrupt"
[ -z "$(find . -name '.there*')" ] || wrong "left by an interrupt: $(ls -A)"

finish
