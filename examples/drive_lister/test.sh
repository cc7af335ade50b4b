# Runs drive_lister, given as the only argument.
. "$(dirname "$0")/../checks.sh"

# row PATH: "size root" of its line, and what the system says of it.
run 0 .
[ "$(wc -l <out)" = 2 ] || wrong "rows: $(cat out)"
wanted="$(($(stat -f -c '%b * %S' .))) $(stat -c %m .)"
got="$(sed -n 2s/^.........//p out | awk '{print $1}') $(sed -n '2s/.*\(yes\|no\) *\(.*\) (.*/\2/p' out)"
[ "$got" = "$wanted" ] || wrong "the drive of .: '$got' instead of '$wanted'"

# A drive is listed once, by whatever path, and also for one that is yet to come.
run 0 . "$room" "$room/not/yet"
[ "$(wc -l <out)" = 2 ] || wrong "one drive, listed as: $(cat out)"
run 0 /proc /
[ "$(grep -c '^no device ' out)" -ge 1 ] || wrong "the kind of /proc: $(cat out)"
grep -q "the system's" out || wrong "the system's drive: $(cat out)"

run 1 '' .
has err 'drive_lister: no drive is known of '
[ "$(wc -l <out)" = 2 ] || wrong "a drive beside a failure: $(cat out)"

run 0
[ "$(grep -c '/ (.*), the system' out)" = 1 ] || wrong "the usual places: $(cat out)"

finish
