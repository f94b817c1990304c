#!/bin/sh
# Rebuilds the network interfaces from the database; the sample board writes down what it would set.
exec sqlite3 -readonly -separator ' ' /quelt/db/config_local.sqlite \
    'SELECT Ip_Dhcp, Ip_Address, Ip_Mask, Ip_Gateway FROM ConfiguracionGen' > /tmp/interfaces
