# Runs processing_run, given as the only argument, over folders made for the purpose.
. "$(dirname "$0")/../checks.sh"

chmod 755 "$room"
export XDG_DATA_HOME="$room/data"
logs=$room/data/Tavik_Inc_IC/Quillmere
tab=$(printf '\t')
escape=$(printf '\033')
return=$(printf "\r")

# Multiplies the sum by the prime to the power $1: what as many zero bytes do to it. Modulo 2^64,
# as the shell counts.
sum_zeros() {
  count=$1 factor=1099511628211
  while [ "$count" -gt 0 ]; do
    [ $((count % 2)) -eq 0 ] || sum=$((sum * factor))
    factor=$((factor * factor)) count=$((count / 2))
  done
}

# --- An exact run: components, columns of non-ASCII names, known sums, the report.
mkdir plain plain/sub.d
printf foobar >plain/äöü.txt
printf a >plain/sub.d/abcdef
: >plain/.hidden
run 0 plain/
[ ! -s err ] || wrong "stderr of a good run: $(cat err)"
cat >wanted <<'END'
plain
  components  plain
  folder      .
  name        plain
  less ext.   plain
  extension   
33 %, 1 of 3 files
66 %, 2 of 3 files
100 %, 3 of 3 files

Name     Ext.     Type   Size  FNV-1a            Folder
.hidden  .hidden  empty     0  cbf29ce484222325  plain
abcdef            text      1  af63dc4c8601ec8c  plain/sub.d
äöü.txt  .txt     text      6  85944171f73967e8  plain

files 3, bytes 7, links to folders not followed 0, failures 0
Report: ./processing_report.txt
Manifest: ./processing_report.xml
Log: LOGS/processing_run0.log to 9.log
Records: LOGS/QMR_ImageStabilization.csv (reading), QMR_Export.csv (copying)
END
grep -v ' %, ' wanted >wanted.table
grep -v -e ' %, ' -e '^  drive ' -e '^output ' out | sed "s,$logs,LOGS," | diff wanted.table - ||
  wrong "table"
has out "100 %, 3 of 3 files"
cat >wanted <<END
processing_run report, format 1
given	plain
files	3
bytes	7
links to folders, not followed	0
failures	0

name	name without extension	extension	type	size	fnv1a64	folder
.hidden		.hidden	empty	0	cbf29ce484222325	plain
abcdef	abcdef		text	1	af63dc4c8601ec8c	plain/sub.d
äöü.txt	äöü	.txt	text	6	85944171f73967e8	plain

end of report
END
sed 2d processing_report.txt | diff wanted - || wrong "report"
sed -n 2p processing_report.txt |
  grep -qxE "date$tab[0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}$tab.*[0-9].*" ||
  wrong "date: $(sed -n 2p processing_report.txt)"
size=$(($(stat -f -c '%b * %S' .)))
[ "$(grep -cE "^  drive       /.*: .*, .*label.*, [0-9]+ of $size bytes free, ready\$" out)" = 2 ] ||
  wrong "drives, of $size bytes: $(grep '^  drive' out)"
has out 'output ./processing_report.txt'

# --- Both logs: a line a step, a record a file, none for a file that failed; the system report.
lines() { sed "s,^\[[0-9/]* [0-9:]*\]$tab,," "$logs/processing_run0.log" | tr -d '\r'; }
cells() { tail -n +2 "$logs/QMR_$1.csv" | tr -d '\r' | awk -F'","' '{print $1, $6, $8}' | sort; }
rm -r "$logs"
ln -s nowhere plain/dangling
run 1 --threads 1 --report --output logged plain
rm plain/dangling
lines >lines
for line in 'INFO run over 1 paths' 'DEBUG read plain/.hidden: empty, 0 bytes' \
    'ERROR plain/dangling: a link that leads nowhere: No such file or directory' \
    'DEBUG copied to ./logged/plain/äöü.txt' 'INFO 3 files read, 3 copied, 1 failures'; do
  has lines "[${line%% *}]$tab${line#* }"
done
[ "$(wc -l <lines)" = 9 ] || wrong "lines: $(cat lines)"
[ "$(cells Export)" = '"SUCCESS plain/.hidden empty
"SUCCESS plain/sub.d/abcdef text
"SUCCESS plain/äöü.txt text' ] || wrong "records of copies: $(cells Export)"
[ "$(cells ImageStabilization | grep -c '^"SUCCESS plain/.* checksum$')" = 3 ] ||
  wrong "records of reading: $(cells ImageStabilization)"
tries=0
until grep -q '^USB\|^Mounted volumes:' "$logs/processing_run system.txt"; do
  tries=$((tries + 1))
  [ $tries -lt 200 ] || { wrong "no system report"; break; }
  sleep 0.05
done
has out "System report: $logs/processing_run system.txt, in a moment"
XDG_DATA_HOME=/dev/null/data run 0 --report plain
has err 'processing_run: nothing is logged, as the folder for it cannot be made: the system refuses'
[ "$(wc -l <err)" = 1 ] && ! grep -q '^Log:\|^System' out || wrong "a run without logs: $(cat out err)"

# --- The manifest: an element a file and a failure, in XML that another program reads too.
manifest() { sed 's/<\(file\|failure\) /\n&/g; s, \(created\|identifier\|microseconds\|modified\|uuid\)="[^"]*",,g' "$1"; }
mkdir 'a &b <c>'
printf a >'a &b <c>/"d"'
run 1 'a &b <c>' missing
manifest processing_report.xml >got
cat >wanted.xml <<'END'
<?xml version="1.0" encoding="UTF-8"?><manifest format="processing_run 1">
<file fnv1a64="af63dc4c8601ec8c" path="a &amp;b &lt;c>/&quot;d&quot;" size="1" type="text"></file>
<failure path="missing">No such file or directory</failure></manifest>
END
printf '\n' | cat got - | diff wanted.xml - || wrong "manifest"
grep -qE ' identifier="1" microseconds="[0-9]+" modified="[0-9/]{10} [0-9:]{8}" .* uuid="[0-9a-f]{32}">' \
  processing_report.xml || wrong "manifest: $(cat processing_report.xml)"
printf '<other/>' >processing_report.xml
run 2 plain
has err 'processing_run: ./processing_report.xml: the manifest cannot go here, the file is not an earlier manifest; --overwrite replaces it'
[ "$(cat processing_report.xml)" = '<other/>' ] || wrong "replaced what is no manifest"
run 0 --overwrite plain

# --- Jobs.
cat >job.xml <<'END'
<?xml version="1.0" encoding="UTF-8"?>
<job>
  <sort>size</sort> <descending/>
  <report-file>by job</report-file>
  <path>a &amp;b &lt;c&gt;</path>
</job>
END
run 0 --job job.xml plain
[ "$(awk -F"$tab" 'NF == 7 && $1 != "name" {printf "%s ", $5}' 'by job')" = '6 1 1 0 ' ] ||
  wrong "by job: $(cat 'by job')"
printf '<job><!-- no --></job>' >comment.xml
printf '<other/>' >other.xml
printf '<job><path><b/></path></job>' >deep.xml
printf '<job><job>job.xml</job></job>' >nested.xml
printf '<job><colour>red</colour></job>' >unknown.xml
for job in comment.xml other.xml deep.xml nested.xml unknown.xml missing.xml plain; do
  run 2 --job $job
  [ "$(wc -l <err)" -eq 1 ] && [ ! -s out ] || wrong "refusal of the job $job: $(cat err out)"
done

# --- Copies: the tree with its empty folders, and the sums of its files.
mkdir -p many/empty/inner many/a/b
for number in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20; do
  seq $((number * 3000)) >many/a/$number
  : >many/a/b/$number
done
ln -s 7 many/a/link
sums() { grep -v ^name processing_report.txt | awk -F"$tab" 'NF == 7 {print $1, $5, $6, $7}'; }
run 0 --output made/copy/ many plain/sub.d/abcdef
diff -r many made/copy/many || wrong "copied tree"
[ ! -L made/copy/many/a/link ] && cmp plain/sub.d/abcdef made/copy/abcdef || wrong "copied files"
grep -qx "files copied$tab$(find -L many plain/sub.d -type f | wc -l)" processing_report.txt ||
  wrong "count of copies: $(cat processing_report.txt)"
has out 'output ./made/copy'
has out 'copied: 100 %, 42 of 42 files'
sums | sed 's,many,made/copy/many,; s,plain/sub.d,made/copy,' >sums.source
run 0 made/copy
sums | diff sums.source - || wrong "sums of the copies"
(cd plain/sub.d && "$program" --report-file ../../r --output ../../dots .. >../../out) ||
  wrong "copies of '..'"
diff -r plain dots || wrong "places of what is in '..'"

# --- What stands there already stays, unless it is to be replaced.
mkdir -p there/sub.d/abcdef
printf old >there/.hidden
run 1 --output there plain/sub.d plain/.hidden plain/äöü.txt plain/äöü.txt
has err 'processing_run: plain/.hidden: not copied to ./there/.hidden: a file is there already; --overwrite replaces it'
has err 'processing_run: plain/sub.d/abcdef: not copied to ./there/sub.d/abcdef: a folder is there already'
has err 'processing_run: plain/äöü.txt: not copied to ./there/äöü.txt: another file of this run is there'
[ "$(cat there/.hidden)" = old ] && cmp plain/äöü.txt there/äöü.txt || wrong "there already"
run 0 --overwrite --output there plain/.hidden
[ ! -s there/.hidden ] || wrong "replaced copy"
run 1 --output there/äöü.txt/below plain
has err 'processing_run: ./there/äöü.txt/below: the folder cannot be created: the system refuses'

# --- However many threads there are, the report is the same.
run 0 --threads 1 --sort type many plain
sed 2d processing_report.txt >one
for threads in 2 8; do
  run 0 --threads $threads --sort type many plain
  sed 2d processing_report.txt | diff one - || wrong "report of $threads threads"
done

# --- Ctrl-C while a file is read, and while one is copied over an old one.
mkdir reading cut cut/old cut/old/film
truncate -s 64G reading/film
# interrupt CONDITION ARGUMENT...: once the condition holds.
interrupt() {
  condition=$1
  shift
  rm -f processing_report.txt
  "$program" "$@" >out 2>err &
  running=$!
  until eval "$condition" || ! kill -0 $running 2>/dev/null; do :; done
  kill -INT $running
  wait $running
  got=$?
  [ $got -eq 130 ] || wrong "status $got of an interrupted run: $*"
  has err 'processing_run: stopped before all was done'
  has processing_report.txt "stopped${tab}by the user, before all was done"
  [ "$(wc -l <err)" -eq 1 ] || wrong "interrupted: $(cat err)"
}
interrupt 'ls -l /proc/$running/fd 2>/dev/null | grep -qF reading/film' --output never reading plain
[ ! -e never ] || wrong "copied after an interrupt"
rm -r reading cut
mkdir long long/last cut cut/long
head -c 256M /dev/zero >long/film
: >long/zero
printf old >cut/long/film
interrupt '[ -d cut/long/last ]' --overwrite --output cut long plain
[ "$(cat cut/long/film)" = old ] || wrong "the old file after an interrupt"
rm cut/long/film
rmdir cut/long/last
interrupt '[ -d cut/long/last ]' --output cut long plain
[ -z "$(find cut -type f)" ] || wrong "left by an interrupt: $(find cut -type f)"
has processing_report.txt "files copied${tab}0"
rm -r long

# --- To the trash.
mkdir home
export HOME="$room/home" XDG_DATA_HOME="$room/home/data"
"$program" --recycle --output gone plain >out 2>err
case $? in
  0)
    diff -r plain home/data/Trash/files/gone/plain || wrong "recycled tree"
    [ ! -e gone ] || wrong "recycled and still there"
    has out 'Recycled: ./gone'
    XDG_DATA_HOME=/dev/null/data run 1 --recycle --output stays plain
    has err 'processing_run: ./stays: the output cannot be recycled: the system refuses, or the drive has no trash'
    diff -r plain stays/plain || wrong "not recycled and not there"
    ;;
  1)
    echo "not tested: recycling ($(cat err))"
    has err 'processing_run: ./gone: the output cannot be recycled: the system refuses, or the drive has no trash'
    ;;
  *) wrong "status of recycling: $(cat err)" ;;
esac

# --- Orders, and types. An earlier report may be replaced.
mkdir types
printf '\177ELF\1' >types/e
printf '\037\213\010' >types/g
printf '\211PNG\r\n\032\n' >types/p
printf '\0\0\0\030ftypqt  ' >types/m
printf 'a\0b' >types/d
printf '%063d\303\244' 0 >types/t   # the slice ends inside the last character
printf '\303\244\303' >types/z      # the file does: no text
for order in 'name e:ELF g:gzip m:MP4 p:PNG t:text' 'size g:gzip e:ELF p:PNG m:MP4 t:text' \
    'type e:ELF m:MP4 p:PNG g:gzip t:text'; do
  key=${order%% *}
  run 0 --sort "$key" types
  got=$(awk -F"$tab" 'NF == 7 && $4 != "data" && $1 != "name" {printf " %s:%s", $1, $4}' \
    processing_report.txt)
  [ "$key$got" = "$order" ] || wrong "sorted by $key: $got"
done
grep -q "^d.*data" processing_report.txt && grep -q "^z.*data" processing_report.txt ||
  wrong "data taken for something else"
run 0 --sort=size --descending --report-file=down types
[ "$(sed -n 10p down | cut -f 1)" = t ] || wrong "descending"

# --- A file of several portions, with a different byte at each end: the sum of its zeroes is known.
mkdir big
zeros=$((2 * 1024 * 1024 + 70000))
{ printf x; head -c $zeros /dev/zero; printf y; } >big/portions
sum=-3750763034362895579
sum=$(((sum ^ 120) * 1099511628211))
sum_zeros $zeros
sum=$(((sum ^ 121) * 1099511628211))
run 0 big
grep -q "$tab$((zeros + 2))$tab$(printf %016x $sum)$tab" processing_report.txt ||
  wrong "sum of several portions"

# --- Troubles: one line each, and the run goes on.
mkdir odd odd/folder
printf foobar >odd/good
printf a >"odd/line
break${tab}and${escape}[31m \\ back"
printf a >"odd/$(printf '\377bad')"
printf a >"odd/$(printf '\342\200\256turned')"
mkfifo odd/fifo
ln -s nowhere odd/dangling
ln -s good odd/link
ln -s .. odd/folder/loop
run 1 odd missing odd/folder/loop ''
has err 'processing_run: odd/fifo: skipped, a FIFO and not a file'
has err 'processing_run: odd/dangling: a link that leads nowhere: No such file or directory'
has err 'processing_run: odd/\xffbad: skipped, its name is not plain UTF-8'
has err 'processing_run: missing: No such file or directory'
has err 'processing_run: odd/folder/loop: skipped, a link to a folder is not followed; name the folder'
has err 'processing_run: "": No such file or directory'
[ "$(wc -l <err)" -eq 6 ] || wrong "lines on stderr: $(cat err)"
has processing_report.txt "files${tab}4"
has processing_report.txt "failures${tab}6"
has processing_report.txt "links to folders, not followed${tab}2"
grep -qF 'line\nbreak\tand\u{1b}[31m \\ back' processing_report.txt || wrong "name with controls"
grep -qF '\u{202e}turned' processing_report.txt || wrong "name that turns the direction"
grep -q "^link${tab}.*${tab}85944171f73967e8${tab}odd$" processing_report.txt || wrong "link"
grep -q "$escape" out err processing_report.txt && wrong "raw escape character"
tail -n 1 processing_report.txt | grep -qx 'end of report' || wrong "end of the report"

# --- Folders deeper than a path can tell.
segment=$(printf '%0200d' 0)
mkdir deep
(cd deep && for level in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22; do
  mkdir $segment && cd -P $segment 2>/dev/null || break
done)
printf a >deep/$segment/near
run 1 deep
[ "$(wc -l <err)" -eq 1 ] && grep -q ': File name too long$' err || wrong "deep: $(cat err)"
grep -q ^near processing_report.txt || wrong "the file beside a deep folder"

# --- A file that shrinks while it is read.
mkdir shrinking
truncate -s 16G shrinking/film
timeout 60 "$program" shrinking >out 2>err &
running=$!
tries=0
until ls -l /proc/[0-9]*/fd 2>/dev/null | grep -qF "$room/shrinking/film"; do
  tries=$((tries + 1))
  [ $tries -lt 200 ] || break
  sleep 0.05
done
truncate -s 1000 shrinking/film
wait $running
[ $? -eq 1 ] || wrong "status of the run with the shrinking file"
grep -q '^processing_run: shrinking/film: became shorter while it was read: [0-9]* of 17179869184 bytes came$' \
  err || wrong "shrinking: $(cat err)"

# --- A file and a folder without permission; root is asked to become nobody.
mkdir closed closed/locked
printf a >closed/open
printf a >closed/secret
printf a >closed/locked/inside
chmod 0 closed/secret closed/locked
become=
[ "$(id -u)" -ne 0 ] || become='setpriv --reuid=65534 --regid=65534 --clear-groups'
mkdir theirs
chmod 777 theirs
if $become "$program" --help >/dev/null 2>err; then
  $become "$program" --report-file theirs/report closed >out 2>err
  [ $? -eq 1 ] || wrong "status without permission"
  has err 'processing_run: closed/secret: cannot be opened: Permission denied'
  has err 'processing_run: closed/locked: cannot be listed: Permission denied'
  has theirs/report "failures${tab}2"
  has theirs/report "files${tab}1"
  for threads in 1 8; do
    $become "$program" --threads $threads --report-file theirs/report closed/secret closed/open \
      closed closed/secret plain closed >out 2>err.$threads
  done
  [ "$(grep -c secret err.1)" = 4 ] && diff err.1 err.8 || wrong "failures on several threads"
  if command -v script >/dev/null; then
    TERM=xterm script -qec "$become $program --report-file theirs/report closed" /dev/null \
      >out </dev/null
    grep -qF "${return}${escape}[Kprocessing_run: closed/secret" out || wrong "a failure beside the bar"
  fi
else
  echo "not tested: files without permission ($(cat err))"
fi
chmod 700 closed/locked

# --- The report never replaces a file of someone else's, unless it is asked to.
printf 'my letter\n' >letter
printf 'processing_run report, format 1' >almost
mkdir folder
for place in letter almost folder nowhere/report; do
  run 2 --report-file $place plain
  [ "$(wc -l <err)" -eq 1 ] && [ ! -s out ] || wrong "refusal of $place: $(cat err out)"
done
has letter 'my letter'
has err 'processing_run: nowhere/report: the report cannot go here, there is no such folder'
run 0 --overwrite --report-file letter plain
tail -n 1 letter | grep -qx 'end of report' || wrong "overwritten"
run 0 --report-file letter types
run 0 --report-file letter plain
sed 2d letter | diff wanted - || wrong "a report over a longer one"

# --- Outputs that cannot be written.
if [ -c /dev/full ]; then
  "$program" plain >/dev/full 2>err
  [ $? -eq 1 ] || wrong "status with a full standard output"
  has err 'processing_run: standard output could not be written'
fi
(trap '' XFSZ && ulimit -f 1 && exec "$program" --report-file limited plain plain plain plain plain \
  plain plain plain plain plain plain >/dev/null 2>&1)
[ $? -eq 1 ] || wrong "status with a report that does not fit"
[ ! -f limited ] || ! grep -q 'end of report' limited || wrong "a report that cannot be complete"

# --- Usage.
run 0 --help
grep -q '^Usage: processing_run' out || wrong "help"
for arguments in --unknown -x '--sort colour' --sort --report-file= --overwrite=1 --recycle \
    '--threads 0' '--threads -1' '--threads 1000' '--output letter plain' '--output plain plain' \
    '--output plain/below/x plain' '--output ./odd/../plain/new plain' \
    '--recycle --output . plain' '--recycle --output new --report-file new/r plain'; do
  run 2 $arguments
  [ "$(wc -l <err)" -eq 1 ] && [ ! -s out ] || wrong "usage $arguments: $(cat err out)"
done
printf a >./--sort
run 0 -- --sort
grep -q "^--sort$tab" processing_report.txt || wrong "a path that looks like an option"

# --- On a terminal: a bar, and nothing raw from names.
if command -v script >/dev/null; then
  TERM=xterm script -qec "$program odd" /dev/null >out </dev/null
  grep -qE '\[#*-+\] [0-9]+ %, [0-3] of 4 files' out || wrong "no bar on a terminal"
  grep -qF 'and\u{1b}[31m' out || wrong "the table on a terminal"
  grep -qF "${escape}[31m" out && wrong "raw escape character on a terminal"
  TERM=xterm script -qec "stty cols 120; $program --output shown big" /dev/null >out </dev/null
  grep -qE '\[#+-*\] copied: [0-9]+ %, [01] of 1 files, [0-9.]+ [kM]?B of 2.2 MB' out ||
    wrong "bytes beside the bar"
else
  echo "not tested: the bar, as there is no script program"
fi

finish
