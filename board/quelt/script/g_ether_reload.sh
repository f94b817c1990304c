#!/bin/sh
# A real board loads its USB network module anew here, once at each start of the daemon.
# That takes a moment there, and so it does here.
echo reloaded >> /tmp/g_ether_reload.log
sleep 0.1
