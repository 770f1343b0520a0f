# Rows for cli_test.sh: named inputs that are no regular file. A FIFO that no
# one writes to, a folder and a device are refused at once (exit 1, nothing on
# standard output) by every command that reads a file: none waits for a
# writer or reads without end. Standard input ("-") is still read, pipe or not.
files_dir=$(mktemp -d)
mkfifo "$files_dir/fifo"
for input in "$files_dir/fifo" "$files_dir" /dev/zero; do
  check 1 "" css "$input"
  check 1 "" json "$input"
  check 1 "" html "$input"
  check 1 "" utf8check "$input"
  check 1 "" form --file "f=$input" -o "$files_dir/body"
  check 1 - icon "$input" --size 16
  check 1 - icon "$input;1" --size 16
  check 1 "" trace summary "$input"
  check 1 - trace timeline "$input" -o "$files_dir/timeline.json"
done
[[ -e "$files_dir/timeline.json" ]] &&
  { echo "FAIL: a refused log left a timeline"; failures=$((failures + 1)); }
[[ -e "$files_dir/body" ]] && { echo "FAIL: a refused input left a body"; failures=$((failures + 1)); }
[[ $(printf 'a { b: c; }' | ${runner:+"$runner"} "$tool" css - 2>/dev/null) == "a { b: c; }" ]] ||
  { echo "FAIL: css - did not read a pipe on standard input"; failures=$((failures + 1)); }
[[ $(printf '[1]' | ${runner:+"$runner"} "$tool" json - 2>/dev/null) == *1* ]] ||
  { echo "FAIL: json - did not read a pipe on standard input"; failures=$((failures + 1)); }
rm -rf "$files_dir"
