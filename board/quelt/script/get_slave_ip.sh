#!/bin/sh
# The address under which slave modules reach this one.
echo '169.254.34.21'
