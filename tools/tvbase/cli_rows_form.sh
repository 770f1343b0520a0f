# Rows for cli_test.sh: tvbase form.
form_examples="$(dirname "${BASH_SOURCE[0]}")/../../examples/form"
form_out=$(mktemp -u)
check 0 "multipart/form-data; boundary=Tarvelo-Client-App-" form --field user=zoe -o "$form_out"
check 0 "multipart/form-data" form --file "doc=$form_examples/note.txt;type=text/plain" -o "$form_out"
check 1 - form --field $'caf\xc3\xa9=x' -o "$form_out.refused"
[[ -e "$form_out.refused" ]] && { echo "FAIL: a refused form left a body"; failures=$((failures + 1)); }
check 1 - form --file "doc=/no/such/file" -o "$form_out.missing"
[[ -e "$form_out.missing" ]] && { echo "FAIL: a failed form left a body"; failures=$((failures + 1)); }
# The body goes through a temporary file of a new name: a link planted
# beside the body's name, where a fixed temporary name would be, leads
# nowhere, and a link at the body's name is replaced, not written through.
form_dir=$(mktemp -d)
printf 'precious' > "$form_dir/victim"
ln -s "$form_dir/victim" "$form_dir/body.partial"
ln -s "$form_dir/victim" "$form_dir/link"
check 0 "multipart/form-data" form --field user=zoe -o "$form_dir/body"
check 0 "multipart/form-data" form --field user=zoe -o "$form_dir/link"
[[ $(cat "$form_dir/victim") == precious ]] ||
  { echo "FAIL: tvbase form wrote through a link"; failures=$((failures + 1)); }
[[ -L "$form_dir/link" ]] && { echo "FAIL: the link at -o was kept"; failures=$((failures + 1)); }
[[ $(ls -A "$form_dir" | tr '\n' ' ') == "body body.partial link victim " ]] ||
  { echo "FAIL: tvbase form left files behind: $(ls "$form_dir")"; failures=$((failures + 1)); }
check 1 - form --field user=zoe -o "$form_dir/no/such/folder/body"
rm -rf "$form_dir"
check 1 - form --file "doc=$form_examples/note.txt;type=text/plain"$'\r\nX-Injected: 1' -o "$form_out"
check 0 "multipart/form-data" form --field $'a"b\r\nc=v' -o "$form_out"
grep -q 'name="a%22b%0D%0Ac"' "$form_out" ||
  { echo "FAIL: tvbase form did not escape a name"; failures=$((failures + 1)); }
check 2 - form --field user=zoe
check 2 - form --field nothing -o "$form_out"
rm -f "$form_out"
