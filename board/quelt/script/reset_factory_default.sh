#!/bin/sh
# Puts the configuration back to what the board was delivered with.
exec sqlite3 /quelt/db/config_local.sqlite '.restore /quelt/factory/config_local.sqlite'
