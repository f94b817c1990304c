#!/bin/sh
# Rebuilds the network interface from the database.
sqlite3 -readonly -separator ' ' /quelt/db/config_local.sqlite \
    'SELECT Ip_Address, Ip_Mask FROM ConfiguracionGen' | {
    read -r address mask
    ip address flush dev usb0
    ip address add "$address/$mask" dev usb0
    ip link set usb0 up
}
