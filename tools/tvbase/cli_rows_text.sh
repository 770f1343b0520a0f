# Rows for cli_test.sh: status, expected output, arguments.
check 2 - ""
check 0 "commands:" --help
check 2 - no-such-command
check 0 "usage: tvbase urlencode" urlencode --help
check 0 "a+b%26c" urlencode "a b&c"
check 0 "%E9" urlencode --code-page 28591 "é"
check 0 "%E9" urlencode --code-page=28591 "é"
check 1 - urlencode --code-page 4242 "x"
check 2 - urlencode --code-page abc "x"
check 2 - urlencode --bogus "x"
check 2 - urlencode one two
check 0 "valid UTF-8" utf8check "$(dirname "${BASH_SOURCE[0]}")/../../examples/text/valid-utf8.txt"
check 1 "offset 19" utf8check "$(dirname "${BASH_SOURCE[0]}")/../../examples/text/broken-utf8.txt"
check 1 - utf8check /no/such/file
