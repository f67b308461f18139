#!/bin/sh
# Shell functions for small texts, to be read in by a program:
#     . /usr/lib/textlib/text.sh

# text_value FILE KEY: prints the value of a line "key=value". Fails when no line has that key.
text_value() {
    while IFS='=' read -r text_key text_rest; do
        if [ "$text_key" = "$2" ]; then
            printf '%s\n' "$text_rest"
            return 0
        fi
    done <"$1"
    return 1
}

# text_frame CHARACTER: prints the standard input in a frame of that character.
text_frame() {
    awk -v edge="$1" '
        function padded(text) {
            while (length(text) < width) text = text " "
            return text
        }
        { line[NR] = $0; if (length($0) > width) width = length($0) }
        END {
            for (i = 0; i < width + 4; i++) rule = rule edge
            print rule
            for (i = 1; i <= NR; i++) print edge, padded(line[i]), edge
            print rule
        }'
}
