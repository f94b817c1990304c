#!/bin/sh
# Puts the configuration back to what the board was delivered with, so that a power cut right
# behind it takes nothing back.
exec sqlite3 -cmd 'PRAGMA synchronous=EXTRA' /quelt/db/config_local.sqlite \
    '.restore /quelt/factory/config_local.sqlite'
