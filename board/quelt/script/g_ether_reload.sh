#!/bin/sh
# A real board loads its USB network module anew here, once at each start of the daemon.
echo reloaded >> /tmp/g_ether_reload.log
