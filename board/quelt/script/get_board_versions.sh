#!/bin/sh
# Three words a line: the board, what, its version.
cat <<'END'
ZND2AV-T Software: 2.4.1
ZND2AV-T U-Boot: 1.3.0
ZND2AV-T Hardware: 3.1.0
END
