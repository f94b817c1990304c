#!/bin/sh
# The address under which slave modules reach this one.
ip -4 address show dev usb0 | sed -n 's,.*inet \([0-9.]*\)/.*,\1,p'
