# Rows for cli_test.sh: tvbase trace.
trace_dir=$(mktemp -d)
trace_log="$trace_dir/app.4242 03-02-2026 09.05.07.012.log"
printf '03/02/2026 09:05:07.012 00001a2c Foo( int(1) )\r\n03/02/2026 09:05:07.015 00001a2c     Foo return\r\n' > "$trace_log"
: > "$trace_dir/empty.log"
check 0 "trace " --help
check 0 "usage: tvbase trace summary LOG..." trace --help
check 0 "usage: tvbase trace summary LOG..." trace summary --help
check 2 - trace
check 2 - trace bogus "$trace_log"
check 2 - trace summary
check 2 - trace timeline "$trace_log"
check 2 - trace flame "$trace_log"
check 2 - trace timeline "$trace_log" -o
check 2 - trace summary "$trace_log" -o "$trace_dir/out.txt"
check 2 - trace flame --widths wide "$trace_log" -o "$trace_dir/out.svg"
check 2 - trace timeline --widths calls "$trace_log" -o "$trace_dir/out.json"
check 2 - trace summary --bogus "$trace_log"
check 0 "process 4242 (app): 1 thread, 2 lines" trace summary "$trace_log"
check 0 "    1         3        3        1    0          0  Foo" trace summary "$trace_log"
check 0 "no calls" trace summary "$trace_dir/empty.log"
check 1 - trace summary /no/such/file.log
check 1 - trace summary "$trace_dir"
check 1 - trace timeline "$trace_log" /no/such/file.log -o "$trace_dir/missing.json"
[[ -e "$trace_dir/missing.json" ]] && { echo "FAIL: a log that can't be read left a timeline"; failures=$((failures + 1)); }
check 1 - trace flame "$trace_log" -o /no/such/folder/out.svg
check 0 "wrote $trace_dir/out.json" trace timeline "$trace_log" -o "$trace_dir/out.json"
check 0 '"traceEvents"' trace timeline "$trace_dir/empty.log" -o -
check 0 "wrote $trace_dir/out.svg" trace flame "$trace_log" -o "$trace_dir/out.svg"
check 0 "widths: numbers of calls" trace flame --widths calls "$trace_log" -o -
check 0 "no calls in the log" trace flame "$trace_dir/empty.log" -o -
rm -rf "$trace_dir"
