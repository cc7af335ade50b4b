# Runs xml_round_trip, given as the only argument.
. "$(dirname "$0")/../checks.sh"

cat >film.xml <<'END'
<?xml version="1.0" encoding="UTF-8"?>
<reel b='say "so"' a="1">
  one &amp; two<cut/>three
</reel>
END
run 0 film.xml copy.xml
has out 'the trees are the same'
tail -n 1 copy.xml | grep -qF '<cut></cut></reel>' && grep -qF "<reel a=\"1\" b='say \"so\"'>" copy.xml ||
  wrong "copy: $(cat copy.xml)"
run 0 --dump copy.xml
cp out dump
run 0 --dump film.xml
cmp out dump || wrong "dumps"
has dump "$(printf '\tAttributes:Num=2')"

# White space between two characters that are escaped stands alone then, and goes.
printf "<a>' '</a>" >loses.xml
run 3 loses.xml loses2.xml
has out 'the trees differ'
run 0 loses2.xml loses3.xml

run 1 film.xml copy.xml
has err 'xml_round_trip: copy.xml: cannot be written'
printf '<a><!-- no --></a>' >comment.xml
run 1 comment.xml never.xml
has err 'xml_round_trip: comment.xml: does not load'
[ ! -e never.xml ] || wrong "a file of a document that did not load"
run 1 missing.xml never.xml
run 2 film.xml

finish
