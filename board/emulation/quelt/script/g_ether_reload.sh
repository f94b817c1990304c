#!/bin/sh
# Loads the USB network module anew, once at each start of the daemon, and gives it its address again.
modprobe dummy_hcd
modprobe -r g_ether
modprobe g_ether dev_addr=02:00:00:00:00:01 host_addr=02:00:00:00:00:02
/quelt/script/set_interfaces_db.sh
