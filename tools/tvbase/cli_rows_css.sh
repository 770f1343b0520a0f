# Rows for cli_test.sh: the css command.
css_examples="$(dirname "${BASH_SOURCE[0]}")/../../examples/css"
check 0 "usage: tvbase css" css --help
check 0 "margin: 16px;" css "$css_examples/theme.css"
check 0 ".icon { width: 16px; height: 12px; margin: 16px -1em; }" css "$css_examples/theme.css"
check 0 "Logo.PNG" css --images-before "$css_examples/theme.css"
check 0 "paper_texture.jpg" css --images "$css_examples/theme.css"
check 1 "" css "$css_examples/broken.css"
check 1 "" css --images "$css_examples/broken.css"
check 1 - css /no/such/file
check 2 - css --images --images-before "$css_examples/theme.css"
check 2 - css --bogus "$css_examples/theme.css"
check 2 - css one two
