# Runs run_summary, given as the only argument.
. "$(dirname "$0")/../checks.sh"

printf '\357\273\277%s\r\n' \
  'Status,Start DateTime,End DateTime,Process Time,Target Duration,File Path,Version,File Format' >log
row() { printf '"%s","%s","","%s","1","%s","1","%s"\r\n' "$@" >>log; }
row SUCCESS "'2026/11/25 01:00:00.000" "'00:00:01.500" '/films/a,b.mov' MOV
row SUCCESS "'2026/11/25 01:00:10.250" "'01:00:00.500" '/films/the ""big"" one' MOV
row 'ERROR  ' "'2026/11/25 01:01:40.000" "'00:00:03.000" '/films/two
lines.mov' 'a,""b""
c'
row SUCCESS "'2026/11/25 01:01:00.000" "'00:00:30.000" '' ''
row SUCCESS 'no date' "'00:00:30.000" '' ''
printf '"SUCCESS","cut' >>log

run 0 log picture.svg
cat >wanted <<'END'
runs       total        mean     longest  kind
   1      30.000      30.000      30.000  -
   2    3602.000    1801.000    3600.500  MOV
   1       3.000       3.000       3.000  a,"b" c
END
diff wanted out || wrong "table"
has picture.svg "<rect x='72.5' y='30.0' width='4' height='200.0' fill='steelblue'/>"
has picture.svg "<rect x='620.0' y='229.8' width='4' height='0.2' fill='firebrick'/>"
[ "$(grep -c "width='4'" picture.svg)" = 4 ] && [ "$(tail -n 1 picture.svg)" = '</svg>' ] ||
  wrong "picture: $(cat picture.svg)"

# --- No run at all, and no file.
head -n 1 log >none
run 0 none none.svg
[ "$(wc -l <out)" = 1 ] && [ ! -e none.svg ] || wrong "no runs: $(cat out)"
run 1 missing
has err 'run_summary: a file was refused with error code 9'
run 1 log nowhere/picture.svg
has err 'run_summary: a file was refused with error code 4'
run 2

finish
