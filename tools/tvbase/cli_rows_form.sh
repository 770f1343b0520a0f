# Rows for cli_test.sh: tvbase form.
form_examples="$(dirname "${BASH_SOURCE[0]}")/../../examples/form"
form_out=$(mktemp -u)
check 0 "multipart/form-data; boundary=Tarvelo-Client-App-" form --field user=zoe -o "$form_out"
check 0 "multipart/form-data" form --file "doc=$form_examples/note.txt;type=text/plain" -o "$form_out"
check 1 - form --field $'caf\xc3\xa9=x' -o "$form_out.refused"
[[ -e "$form_out.refused" ]] && { echo "FAIL: a refused form left a body"; failures=$((failures + 1)); }
check 1 - form --file "doc=/no/such/file" -o "$form_out.missing"
[[ -e "$form_out.missing" ]] && { echo "FAIL: a failed form left a body"; failures=$((failures + 1)); }
check 2 - form --field user=zoe
check 2 - form --field nothing -o "$form_out"
rm -f "$form_out"
