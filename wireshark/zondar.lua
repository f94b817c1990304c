-- Shows the zondar protocol in Wireshark and tshark, 4.0 to 4.4. Made from the description of
-- the messages and the parts in wireshark/dissector/ by dissector_lua: change those.

local COMMANDS = {
    [0] = {name = "status", answer = "status", meaning = "alarms, states and bitrates"},
    [1] = {name = "configuration", answer = "configuration_1", meaning = "the parameters, in two blocks"},
    [2] = {name = "status", answer = "status", meaning = "the same as command 0"},
    [3] = {name = "write", meaning = "store a parameter or act, by a sub-command"},
    [4] = {name = "identification", answer = "identification", meaning = "who the module is"},
}
local CONFIGURATION, WRITE = 1, 3

local LAYOUTS = {
    block = {
        length = 1,
        {at = 0, width = 1, name = "block", kind = "code", meaning = "2 for block 2, any other value for block 1"},
    },
    write = {
        length = 1,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "the code of the sub-command"},
        {at = 1, width = 0, name = "value", kind = "value", meaning = "of the sub-command's kind and width"},
    },
    refusal = {
        length = 255,
        {at = 0, width = 255, kind = "zeros"},
    },
    identification = {
        length = 48,
        {at = 0, width = 3, name = "model", kind = "text", text = true, meaning = "type and model: the beginning of the name"},
        {at = 3, width = 2, name = "software", kind = "version", meaning = "version of the software"},
        {at = 5, width = 8, name = "name", kind = "text", text = true, meaning = "name of the device"},
        {at = 13, width = 2, name = "boot_loader", kind = "version", meaning = "version of the boot loader"},
        {at = 15, width = 2, name = "hardware", kind = "version", meaning = "version of the hardware"},
        {at = 17, width = 12, name = "serial", kind = "text", text = true, meaning = "serial number"},
        {at = 29, width = 12, name = "mac", kind = "digits", text = true, meaning = "MAC address"},
        {at = 41, width = 7, kind = "zeros"},
    },
    status = {
        length = 28,
        {at = 0, width = 1, name = "input_sync", kind = "code", meaning = "synchronisation of the AV inputs"},
        {at = 1, width = 1, name = "alarma_hw", kind = "bit", bit = 0, meaning = "alarm \"hw\""},
        {at = 1, width = 1, name = "alarma_in", kind = "bit", bit = 1, meaning = "alarm \"in\""},
        {at = 1, width = 1, name = "alarma_cod", kind = "bit", bit = 2, meaning = "alarm \"cod\""},
        {at = 1, width = 1, name = "alarma_si", kind = "bit", bit = 3, meaning = "alarm \"si\""},
        {at = 1, width = 1, name = "alarma_mod", kind = "bit", bit = 4, meaning = "alarm \"mod\""},
        {at = 1, width = 1, name = "alarma_ip", kind = "bit", bit = 5, meaning = "alarm \"ip\""},
        {at = 2, width = 4, kind = "zeros"},
        {at = 6, width = 1, name = "output_sync", kind = "bit", bit = 0, meaning = "the output is synchronised"},
        {at = 7, width = 1, name = "tv_system_1", kind = "code", meaning = "TV system"},
        {at = 8, width = 1, name = "tv_system_2", kind = "code", meaning = "TV system"},
        {at = 9, width = 1, name = "hdmi_1", kind = "code", meaning = "HDMI"},
        {at = 10, width = 1, name = "hdsdi_1", kind = "code", meaning = "HD-SDI"},
        {at = 11, width = 1, kind = "fixed"},
        {at = 12, width = 1, kind = "fixed"},
        {at = 13, width = 1, name = "hdmi_2", kind = "code", meaning = "HDMI"},
        {at = 14, width = 1, name = "hdsdi_2", kind = "code", meaning = "HD-SDI"},
        {at = 15, width = 1, name = "null_level", kind = "sign and magnitude", meaning = "null packet level"},
        {at = 16, width = 1, name = "multiplex_1", kind = "remainder", meaning = "multiplex: half of column 5 of Bitrate_Nulos"},
        {at = 17, width = 1, name = "multiplex_total", kind = "remainder", meaning = "multiplex: half of column 4 of Bitrate_Nulos"},
        {at = 18, width = 1, name = "multiplex_2", kind = "remainder", meaning = "multiplex: half of column 3 of Bitrate_Nulos"},
        {at = 19, width = 2, name = "multiplex_net", kind = "number", meaning = "multiplex: bitrate without null packets"},
        {at = 21, width = 2, name = "ip_total", kind = "number", meaning = "IP output: sum of the bitrates"},
        {at = 23, width = 2, name = "ip_0", kind = "number", meaning = "IP output: bitrate of stream 0"},
        {at = 25, width = 2, name = "ip_1", kind = "number", meaning = "IP output: bitrate of stream 1, or of what is played"},
        {at = 27, width = 1, name = "player", kind = "code", meaning = "player"},
    },
    configuration_1 = {
        length = 114,
        {at = 0, width = 1, name = "block", kind = "fixed"},
        {at = 1, width = 1, parameter = "ConfiguracionGen.Modo_Entrada"},
        {at = 2, width = 1, parameter = "EntradaAV.0.Brillo"},
        {at = 3, width = 1, parameter = "EntradaAV.0.Contraste"},
        {at = 4, width = 1, parameter = "EntradaAV.0.Saturacion"},
        {at = 5, width = 1, parameter = "EntradaAV.0.Sharpness"},
        {at = 6, width = 1, parameter = "EntradaAV.0.Video_Enc_Standard"},
        {at = 7, width = 1, parameter = "EntradaAV.0.Video_Aspect_Ratio"},
        {at = 8, width = 2, parameter = "EntradaAV.0.Bitrate"},
        {at = 10, width = 1, parameter = "EntradaAV.0.Audio_Bitrate"},
        {at = 11, width = 1, parameter = "EntradaAV.0.Low_Latency"},
        {at = 12, width = 1, parameter = "EntradaAV.1.Brillo"},
        {at = 13, width = 1, parameter = "EntradaAV.1.Contraste"},
        {at = 14, width = 1, parameter = "EntradaAV.1.Saturacion"},
        {at = 15, width = 1, parameter = "EntradaAV.1.Sharpness"},
        {at = 16, width = 1, parameter = "EntradaAV.1.Video_Enc_Standard"},
        {at = 17, width = 1, parameter = "EntradaAV.1.Video_Aspect_Ratio"},
        {at = 18, width = 2, parameter = "EntradaAV.1.Bitrate"},
        {at = 20, width = 1, parameter = "EntradaAV.1.Audio_Bitrate"},
        {at = 21, width = 1, parameter = "EntradaAV.1.Low_Latency"},
        {at = 22, width = 1, parameter = "RFOut.Cofdm_Off"},
        {at = 23, width = 1, parameter = "RFOut.Canal_Salida"},
        {at = 24, width = 3, parameter = "RFOut.Frecuencia"},
        {at = 27, width = 1, parameter = "ConfiguracionGen.Atenuacion"},
        {at = 28, width = 1, parameter = "RFOut.Modo_OFDM"},
        {at = 29, width = 1, parameter = "RFOut.Ancho_Banda"},
        {at = 30, width = 1, parameter = "RFOut.Intervalo_Guarda"},
        {at = 31, width = 1, parameter = "RFOut.Constelacion"},
        {at = 32, width = 1, parameter = "RFOut.Code_Rate"},
        {at = 33, width = 1, parameter = "PIDsSalida.0.1.Seleccionado"},
        {at = 34, width = 1, parameter = "PIDsSalida.0.2.Seleccionado"},
        {at = 35, width = 2, parameter = "ServiciosSalida.0.LCN"},
        {at = 37, width = 2, parameter = "ServiciosSalida.0.SID"},
        {at = 39, width = 15, parameter = "ServiciosSalida.0.Nombre"},
        {at = 54, width = 1, parameter = "PIDsSalida.1.1.Seleccionado"},
        {at = 55, width = 1, parameter = "PIDsSalida.1.2.Seleccionado"},
        {at = 56, width = 2, parameter = "ServiciosSalida.1.LCN"},
        {at = 58, width = 2, parameter = "ServiciosSalida.1.SID"},
        {at = 60, width = 15, parameter = "ServiciosSalida.1.Nombre"},
        {at = 75, width = 15, parameter = "Red.NetworkName"},
        {at = 90, width = 15, parameter = "Red.Proveedor"},
        {at = 105, width = 2, parameter = "Red.NID"},
        {at = 107, width = 2, parameter = "Red.TSID_Out"},
        {at = 109, width = 2, parameter = "Red.ONID_Out"},
        {at = 111, width = 1, parameter = "Red.NIT_Patron"},
        {at = 112, width = 1, parameter = "Red.LCN_Mode"},
        {at = 113, width = 1, parameter = "Red.Insertar_TDT"},
    },
    configuration_2 = {
        length = 185,
        {at = 0, width = 1, name = "block", kind = "fixed"},
        {at = 1, width = 1, parameter = "IPOut.Ip_Off"},
        {at = 2, width = 1, parameter = "IPOut.Protocolo"},
        {at = 3, width = 1, parameter = "IPOut.Qos"},
        {at = 4, width = 1, parameter = "IPOut.Ttl"},
        {at = 5, width = 1, parameter = "IPOut.Vlan_Mode"},
        {at = 6, width = 2, parameter = "IPOut.Vlan_Id"},
        {at = 8, width = 2, parameter = "IPOut.Vlan_Tpid"},
        {at = 10, width = 15, parameter = "ServiciosSalida.0.IP_address_source"},
        {at = 25, width = 2, parameter = "ServiciosSalida.0.IP_port_source"},
        {at = 27, width = 15, parameter = "ServiciosSalida.0.Nombre_SAP"},
        {at = 42, width = 15, parameter = "ServiciosSalida.1.IP_address_source"},
        {at = 57, width = 2, parameter = "ServiciosSalida.1.IP_port_source"},
        {at = 59, width = 15, parameter = "ServiciosSalida.1.Nombre_SAP"},
        {at = 74, width = 1, parameter = "IPOut.SAP_Mode"},
        {at = 75, width = 15, parameter = "IPOut.SAP_Ip"},
        {at = 90, width = 15, parameter = "IPOut.SAP_User"},
        {at = 105, width = 1, parameter = "IPOut.SAP_Time"},
        {at = 106, width = 1, parameter = "ConfiguracionGen.Player_Mode"},
        {at = 107, width = 1, parameter = "ConfiguracionGen.Ip_Dhcp"},
        {at = 108, width = 15, parameter = "ConfiguracionGen.Ip_Address"},
        {at = 123, width = 15, parameter = "ConfiguracionGen.Ip_Mask"},
        {at = 138, width = 15, parameter = "ConfiguracionGen.Ip_Gateway"},
        {at = 153, width = 15, parameter = "ConfiguracionGen.Country"},
        {at = 168, width = 5, name = "time", kind = "text", text = true, meaning = "local time, HH.MM"},
        {at = 173, width = 10, name = "date", kind = "text", text = true, meaning = "local date, DD.MM.YYYY"},
        {at = 183, width = 1, parameter = "ConfiguracionGen.Subtimezone"},
        {at = 184, width = 1, parameter = "IPOut.Mpts_Mode"},
    },
    time_of_day = {
        length = 6,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "the code of the sub-command"},
        {at = 1, width = 5, name = "time", kind = "text", text = true, meaning = "local time, HH.MM"},
    },
    day = {
        length = 11,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "the code of the sub-command"},
        {at = 1, width = 10, name = "date", kind = "text", text = true, meaning = "local date, DD.MM.YYYY"},
    },
    not_looked_at = {
        length = 2,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "the code of the sub-command"},
        {at = 1, width = 1, name = "ignored", kind = "code", meaning = "not looked at, but there"},
    },
    channel = {
        length = 2,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "the code of the sub-command"},
        {at = 1, width = 1, name = "channel", kind = "number", meaning = "channel of the AV input"},
    },
    slave = {
        length = 14,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "the code of the sub-command"},
        {at = 1, width = 13, name = "mac", kind = "text", text = true, meaning = "MAC address of the slave"},
    },
    slave_channel = {
        length = 15,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "the code of the sub-command"},
        {at = 1, width = 13, name = "mac", kind = "text", text = true, meaning = "MAC address of the slave"},
        {at = 14, width = 1, name = "channel", kind = "number", meaning = "channel of the AV input"},
    },
    slave_status = {
        length = 23,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "the code of the sub-command"},
        {at = 1, width = 13, name = "mac", kind = "text", text = true, meaning = "MAC address of the slave"},
        {at = 14, width = 9, name = "status", kind = "text", text = true, meaning = "status of the remote encoder"},
    },
    slave_state = {
        length = 15,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "the code of the sub-command"},
        {at = 1, width = 13, name = "mac", kind = "text", text = true, meaning = "MAC address of the slave"},
        {at = 14, width = 1, name = "state", kind = "code", meaning = "state of the slave"},
    },
    slave_identity = {
        length = 74,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "the code of the sub-command"},
        {at = 1, width = 13, name = "mac", kind = "text", text = true, meaning = "MAC address of the slave"},
        {at = 14, width = 18, name = "hostname", kind = "text", text = true, meaning = "host name"},
        {at = 32, width = 13, name = "serial", kind = "text", text = true, meaning = "serial number"},
        {at = 45, width = 10, name = "model", kind = "text", text = true, meaning = "model"},
        {at = 55, width = 16, name = "ip", kind = "text", text = true, meaning = "IP address"},
        {at = 71, width = 3, name = "software", kind = "version", meaning = "version of the software"},
    },
    master_identity = {
        length = 75,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "that of the request"},
        {at = 1, width = 12, name = "mac", kind = "digits", text = true, meaning = "MAC address"},
        {at = 13, width = 1, kind = "zeros"},
        {at = 14, width = 18, name = "hostname", kind = "text", text = true, meaning = "host name"},
        {at = 32, width = 12, name = "serial", kind = "text", text = true, meaning = "serial number"},
        {at = 44, width = 1, kind = "zeros"},
        {at = 45, width = 10, name = "model", kind = "text", text = true, meaning = "model"},
        {at = 55, width = 16, name = "ip", kind = "line", text = true, meaning = "IP address, as the board's script prints it"},
        {at = 71, width = 3, name = "software", kind = "version", meaning = "version of the software"},
        {at = 74, width = 1, name = "registered", kind = "true if zero", meaning = "the slave is registered"},
    },
    pending_state = {
        length = 3,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "that of the request"},
        {at = 1, width = 1, name = "channel", kind = "number", meaning = "channel of the AV input"},
        {at = 2, width = 1, name = "pending_state", kind = "code", values = {[0] = "cleared", [2] = "confirmed"}, meaning = "pending state: 0 cleared, 2 confirmed"},
    },
    encoder = {
        length = 28,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "that of the request"},
        {at = 1, width = 1, name = "channel", kind = "number", meaning = "channel of the AV input"},
        {at = 2, width = 1, parameter = "EntradaAV.c.Sharpness"},
        {at = 3, width = 1, parameter = "EntradaAV.c.Video_Enc_Standard"},
        {at = 4, width = 2, parameter = "EntradaAV.c.Bitrate"},
        {at = 6, width = 1, parameter = "EntradaAV.c.Audio_Enc_Standard"},
        {at = 7, width = 1, parameter = "EntradaAV.c.Audio_Bitrate"},
        {at = 8, width = 1, parameter = "EntradaAV.c.Video_Aspect_Ratio"},
        {at = 9, width = 1, parameter = "EntradaAV.c.Remux_Av"},
        {at = 10, width = 2, parameter = "EntradaAV.c.Pid_Video_Ch"},
        {at = 12, width = 2, parameter = "EntradaAV.c.Pid_Audio_Ch"},
        {at = 14, width = 2, parameter = "EntradaAV.c.Pid_Pcr_Ch"},
        {at = 16, width = 1, parameter = "EntradaAV.c.Filter_Mode"},
        {at = 17, width = 1, parameter = "EntradaAV.c.Low_Latency"},
        {at = 18, width = 1, parameter = "EntradaAV.c.Profile"},
        {at = 19, width = 1, parameter = "EntradaAV.c.Level"},
        {at = 20, width = 2, parameter = "EntradaAV.c.Remote_Audio_Sampling_Rate"},
        {at = 22, width = 1, parameter = "EntradaAV.c.Remote_Needs_Reload_Firmware"},
        {at = 23, width = 1, parameter = "EntradaAV.c.Remote_Sistema_TV"},
        {at = 24, width = 1, parameter = "EntradaAV.c.Remote_Stop"},
        {at = 25, width = 1, parameter = "EntradaAV.c.Remote_Video_Present"},
        {at = 26, width = 1, parameter = "EntradaAV.c.Remote_Audio_Present"},
        {at = 27, width = 1, parameter = "EntradaAV.c.Remote_Modo_Salida"},
    },
    status_stored = {
        length = 2,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "that of the request"},
        {at = 1, width = 1, name = "result", kind = "code", meaning = "always 0"},
    },
    upgrade = {
        length = 15,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "that of the request"},
        {at = 1, width = 1, name = "upgrade", kind = "code", meaning = "whether the slave shall upgrade"},
        {at = 2, width = 12, name = "mac", kind = "digits", text = true, meaning = "MAC address"},
        {at = 14, width = 1, kind = "zeros"},
    },
    no_slave = {
        length = 14,
        {at = 0, width = 1, name = "sub_command", kind = "sub-command", meaning = "that of the request"},
        {at = 1, width = 12, name = "mac", kind = "digits", text = true, meaning = "MAC address"},
        {at = 13, width = 1, kind = "zeros"},
    },
}

local PARAMETERS = {
    ["ConfiguracionGen.Modo_Entrada"] = {kind = "code", width = 1, shown = 1, stored_as = {[3] = 10, [4] = 11}, meaning = "mode of the AV inputs"},
    ["EntradaAV.0.Brillo"] = {kind = "number", width = 1, shown = 1, meaning = "brightness"},
    ["EntradaAV.0.Contraste"] = {kind = "number", width = 1, shown = 1, meaning = "contrast"},
    ["EntradaAV.0.Saturacion"] = {kind = "number", width = 1, shown = 1, meaning = "saturation"},
    ["EntradaAV.0.Sharpness"] = {kind = "number", width = 1, shown = 1, meaning = "sharpness"},
    ["EntradaAV.0.Video_Enc_Standard"] = {kind = "code", width = 1, shown = 1, meaning = "video encoding standard"},
    ["EntradaAV.0.Video_Aspect_Ratio"] = {kind = "code", width = 1, shown = 1, meaning = "video aspect ratio"},
    ["EntradaAV.0.Bitrate"] = {kind = "number", width = 2, shown = 2, unit = "kbit/s", meaning = "video bitrate"},
    ["EntradaAV.0.Audio_Bitrate"] = {kind = "code", width = 1, shown = 1, meaning = "audio bitrate"},
    ["EntradaAV.1.Brillo"] = {kind = "number", width = 1, shown = 1, meaning = "brightness"},
    ["EntradaAV.1.Contraste"] = {kind = "number", width = 1, shown = 1, meaning = "contrast"},
    ["EntradaAV.1.Saturacion"] = {kind = "number", width = 1, shown = 1, meaning = "saturation"},
    ["EntradaAV.1.Sharpness"] = {kind = "number", width = 1, shown = 1, meaning = "sharpness"},
    ["EntradaAV.1.Video_Enc_Standard"] = {kind = "code", width = 1, shown = 1, meaning = "video encoding standard"},
    ["EntradaAV.1.Video_Aspect_Ratio"] = {kind = "code", width = 1, shown = 1, meaning = "video aspect ratio"},
    ["EntradaAV.1.Bitrate"] = {kind = "number", width = 2, shown = 2, unit = "kbit/s", meaning = "video bitrate"},
    ["EntradaAV.1.Audio_Bitrate"] = {kind = "code", width = 1, shown = 1, meaning = "audio bitrate"},
    ["RFOut.Cofdm_Off"] = {kind = "switch", width = 1, shown = 1, values = {[0] = "on", [1] = "off"}, meaning = "RF output: 1 is off"},
    ["RFOut.Canal_Salida"] = {kind = "number", width = 1, shown = 1, meaning = "RF channel"},
    ["RFOut.Frecuencia"] = {kind = "number", width = 3, shown = 3, unit = "kHz", meaning = "RF frequency"},
    ["ConfiguracionGen.Atenuacion"] = {kind = "number", width = 1, shown = 1, meaning = "attenuation of the RF output"},
    ["RFOut.Modo_OFDM"] = {kind = "code", width = 1, shown = 1, meaning = "OFDM mode"},
    ["RFOut.Ancho_Banda"] = {kind = "code", width = 1, shown = 1, meaning = "bandwidth"},
    ["RFOut.Intervalo_Guarda"] = {kind = "code", width = 1, shown = 1, meaning = "guard interval"},
    ["RFOut.Constelacion"] = {kind = "code", width = 1, shown = 1, meaning = "constellation"},
    ["RFOut.Code_Rate"] = {kind = "code", width = 1, shown = 1, meaning = "code rate"},
    ["PIDsSalida.0.1.Seleccionado"] = {kind = "switch", width = 1, shown = 1, meaning = "video of the service: 1 on, 0 off"},
    ["PIDsSalida.0.2.Seleccionado"] = {kind = "switch", width = 1, shown = 1, meaning = "audio of the service: 1 on, 0 off"},
    ["ServiciosSalida.0.LCN"] = {kind = "number", width = 2, shown = 2, meaning = "logical channel number"},
    ["ServiciosSalida.0.SID"] = {kind = "number", width = 2, shown = 2, meaning = "service identifier"},
    ["ServiciosSalida.0.Nombre"] = {kind = "text", text = true, width = 15, shown = 15, meaning = "name of the service"},
    ["PIDsSalida.1.1.Seleccionado"] = {kind = "switch", width = 1, shown = 1, meaning = "video of the service: 1 on, 0 off"},
    ["PIDsSalida.1.2.Seleccionado"] = {kind = "switch", width = 1, shown = 1, meaning = "audio of the service: 1 on, 0 off"},
    ["ServiciosSalida.1.LCN"] = {kind = "number", width = 2, shown = 2, meaning = "logical channel number"},
    ["ServiciosSalida.1.SID"] = {kind = "number", width = 2, shown = 2, meaning = "service identifier"},
    ["ServiciosSalida.1.Nombre"] = {kind = "text", text = true, width = 15, shown = 15, meaning = "name of the service"},
    ["Red.NetworkName"] = {kind = "text", text = true, width = 15, shown = 15, meaning = "network name"},
    ["Red.Proveedor"] = {kind = "text", text = true, width = 15, shown = 15, meaning = "provider"},
    ["Red.NID"] = {kind = "number", width = 2, shown = 2, meaning = "network identifier"},
    ["Red.TSID_Out"] = {kind = "number", width = 2, shown = 2, not_stored = true, meaning = "transport stream identifier"},
    ["Red.ONID_Out"] = {kind = "number", width = 2, shown = 2, not_stored = true, meaning = "original network identifier"},
    ["Red.NIT_Patron"] = {kind = "code", width = 1, shown = 1, meaning = "NIT pattern"},
    ["Red.LCN_Mode"] = {kind = "code", width = 1, shown = 1, meaning = "LCN mode"},
    ["Red.Insertar_TDT"] = {kind = "code", width = 1, shown = 1, meaning = "insertion of the TDT"},
    ["IPOut.Ip_Off"] = {kind = "switch", width = 1, shown = 1, values = {[0] = "on", [1] = "off"}, meaning = "IP output: 1 is off"},
    ["IPOut.Protocolo"] = {kind = "code", width = 1, shown = 1, meaning = "protocol"},
    ["IPOut.Qos"] = {kind = "code", width = 1, shown = 1, meaning = "quality of service"},
    ["IPOut.Ttl"] = {kind = "number", width = 1, shown = 1, meaning = "time to live"},
    ["IPOut.Vlan_Mode"] = {kind = "code", width = 1, shown = 1, meaning = "VLAN mode"},
    ["IPOut.Vlan_Id"] = {kind = "number", width = 2, shown = 2, meaning = "VLAN identifier"},
    ["IPOut.Vlan_Tpid"] = {kind = "number", width = 2, shown = 2, meaning = "VLAN tag protocol identifier"},
    ["ServiciosSalida.0.IP_address_source"] = {kind = "address", text = true, width = 16, shown = 15, meaning = "source address of a service that comes by IP"},
    ["ServiciosSalida.0.IP_port_source"] = {kind = "number", width = 2, shown = 2, meaning = "source port of a service that comes by IP"},
    ["ServiciosSalida.0.Nombre_SAP"] = {kind = "text", text = true, width = 15, shown = 15, meaning = "name in the SAP announcement"},
    ["ServiciosSalida.1.IP_address_source"] = {kind = "address", text = true, width = 16, shown = 15, meaning = "source address of a service that comes by IP"},
    ["ServiciosSalida.1.IP_port_source"] = {kind = "number", width = 2, shown = 2, meaning = "source port of a service that comes by IP"},
    ["ServiciosSalida.1.Nombre_SAP"] = {kind = "text", text = true, width = 15, shown = 15, meaning = "name in the SAP announcement"},
    ["IPOut.SAP_Mode"] = {kind = "switch", width = 1, shown = 1, meaning = "SAP announcements"},
    ["IPOut.SAP_Ip"] = {kind = "address", text = true, width = 16, shown = 15, meaning = "SAP address"},
    ["IPOut.SAP_User"] = {kind = "text", text = true, width = 15, shown = 15, meaning = "SAP user"},
    ["IPOut.SAP_Time"] = {kind = "number", width = 1, shown = 1, meaning = "SAP interval"},
    ["ConfiguracionGen.Player_Mode"] = {kind = "code", width = 1, shown = 1, meaning = "player mode"},
    ["ConfiguracionGen.Ip_Dhcp"] = {kind = "switch", width = 1, shown = 1, meaning = "address of the management interface by DHCP"},
    ["ConfiguracionGen.Ip_Address"] = {kind = "address", text = true, width = 16, shown = 15, meaning = "address of the management interface"},
    ["ConfiguracionGen.Ip_Mask"] = {kind = "address", text = true, width = 16, shown = 15, meaning = "mask of the management interface"},
    ["ConfiguracionGen.Ip_Gateway"] = {kind = "address", text = true, width = 16, shown = 15, meaning = "gateway of the management interface"},
    ["ConfiguracionGen.Country"] = {kind = "text", text = true, width = 15, shown = 15, meaning = "country"},
    ["ConfiguracionGen.Subtimezone"] = {kind = "code", width = 1, shown = 1, meaning = "sub-zone of the time zone"},
    ["ConfiguracionGen.Lcd_Bloqueo"] = {kind = "switch", width = 1, meaning = "lock of the front panel"},
    ["ConfiguracionGen.Lcd_Codbloqueo"] = {kind = "text", text = true, width = 5, meaning = "lock code of the front panel"},
    ["IPOut.Mpts_Mode"] = {kind = "code", width = 1, shown = 1, meaning = "encapsulation of the IP output"},
    ["EntradaAV.0.Low_Latency"] = {kind = "code", width = 1, shown = 1, meaning = "low latency"},
    ["EntradaAV.1.Low_Latency"] = {kind = "code", width = 1, shown = 1, meaning = "low latency"},
    ["EntradaAV.c.Sharpness"] = {kind = "number", width = 1, meaning = "sharpness"},
    ["EntradaAV.c.Video_Enc_Standard"] = {kind = "code", width = 1, meaning = "video encoding standard"},
    ["EntradaAV.c.Bitrate"] = {kind = "number", width = 2, unit = "kbit/s", meaning = "video bitrate"},
    ["EntradaAV.c.Audio_Enc_Standard"] = {kind = "code", width = 1, meaning = "audio encoding standard"},
    ["EntradaAV.0.Audio_Enc_Standard"] = {kind = "code", width = 1, meaning = "audio encoding standard"},
    ["EntradaAV.1.Audio_Enc_Standard"] = {kind = "code", width = 1, meaning = "audio encoding standard"},
    ["EntradaAV.c.Audio_Bitrate"] = {kind = "code", width = 1, meaning = "audio bitrate"},
    ["EntradaAV.c.Video_Aspect_Ratio"] = {kind = "code", width = 1, meaning = "video aspect ratio"},
    ["EntradaAV.c.Remux_Av"] = {kind = "code", width = 1, meaning = "streams that are off: bit 1 video, bit 0 audio"},
    ["EntradaAV.0.Remux_Av"] = {kind = "code", width = 1, meaning = "streams that are off: bit 1 video, bit 0 audio"},
    ["EntradaAV.1.Remux_Av"] = {kind = "code", width = 1, meaning = "streams that are off: bit 1 video, bit 0 audio"},
    ["EntradaAV.c.Pid_Video_Ch"] = {kind = "number", width = 2, meaning = "PID of the video"},
    ["EntradaAV.0.Pid_Video_Ch"] = {kind = "number", width = 2, meaning = "PID of the video"},
    ["EntradaAV.1.Pid_Video_Ch"] = {kind = "number", width = 2, meaning = "PID of the video"},
    ["EntradaAV.c.Pid_Audio_Ch"] = {kind = "number", width = 2, meaning = "PID of the audio"},
    ["EntradaAV.0.Pid_Audio_Ch"] = {kind = "number", width = 2, meaning = "PID of the audio"},
    ["EntradaAV.1.Pid_Audio_Ch"] = {kind = "number", width = 2, meaning = "PID of the audio"},
    ["EntradaAV.c.Pid_Pcr_Ch"] = {kind = "number", width = 2, meaning = "PID of the clock reference"},
    ["EntradaAV.0.Pid_Pcr_Ch"] = {kind = "number", width = 2, meaning = "PID of the clock reference"},
    ["EntradaAV.1.Pid_Pcr_Ch"] = {kind = "number", width = 2, meaning = "PID of the clock reference"},
    ["EntradaAV.c.Filter_Mode"] = {kind = "code", width = 1, meaning = "filter mode"},
    ["EntradaAV.0.Filter_Mode"] = {kind = "code", width = 1, meaning = "filter mode"},
    ["EntradaAV.1.Filter_Mode"] = {kind = "code", width = 1, meaning = "filter mode"},
    ["EntradaAV.c.Low_Latency"] = {kind = "code", width = 1, meaning = "low latency"},
    ["EntradaAV.c.Profile"] = {kind = "code", width = 1, meaning = "encoding profile"},
    ["EntradaAV.0.Profile"] = {kind = "code", width = 1, meaning = "encoding profile"},
    ["EntradaAV.1.Profile"] = {kind = "code", width = 1, meaning = "encoding profile"},
    ["EntradaAV.c.Level"] = {kind = "code", width = 1, meaning = "encoding level"},
    ["EntradaAV.0.Level"] = {kind = "code", width = 1, meaning = "encoding level"},
    ["EntradaAV.1.Level"] = {kind = "code", width = 1, meaning = "encoding level"},
    ["EntradaAV.c.Remote_Audio_Sampling_Rate"] = {kind = "number", width = 2, meaning = "remote encoder: audio sampling rate"},
    ["EntradaAV.0.Remote_Audio_Sampling_Rate"] = {kind = "number", width = 2, meaning = "remote encoder: audio sampling rate"},
    ["EntradaAV.1.Remote_Audio_Sampling_Rate"] = {kind = "number", width = 2, meaning = "remote encoder: audio sampling rate"},
    ["EntradaAV.c.Remote_Needs_Reload_Firmware"] = {kind = "code", width = 1, meaning = "remote encoder: firmware must be reloaded"},
    ["EntradaAV.0.Remote_Needs_Reload_Firmware"] = {kind = "code", width = 1, meaning = "remote encoder: firmware must be reloaded"},
    ["EntradaAV.1.Remote_Needs_Reload_Firmware"] = {kind = "code", width = 1, meaning = "remote encoder: firmware must be reloaded"},
    ["EntradaAV.c.Remote_Sistema_TV"] = {kind = "code", width = 1, meaning = "remote encoder: TV system"},
    ["EntradaAV.0.Remote_Sistema_TV"] = {kind = "code", width = 1, meaning = "remote encoder: TV system"},
    ["EntradaAV.1.Remote_Sistema_TV"] = {kind = "code", width = 1, meaning = "remote encoder: TV system"},
    ["EntradaAV.c.Remote_Stop"] = {kind = "code", width = 1, meaning = "remote encoder: stopped"},
    ["EntradaAV.0.Remote_Stop"] = {kind = "code", width = 1, meaning = "remote encoder: stopped"},
    ["EntradaAV.1.Remote_Stop"] = {kind = "code", width = 1, meaning = "remote encoder: stopped"},
    ["EntradaAV.c.Remote_Video_Present"] = {kind = "code", width = 1, meaning = "remote encoder: video present"},
    ["EntradaAV.0.Remote_Video_Present"] = {kind = "code", width = 1, meaning = "remote encoder: video present"},
    ["EntradaAV.1.Remote_Video_Present"] = {kind = "code", width = 1, meaning = "remote encoder: video present"},
    ["EntradaAV.c.Remote_Audio_Present"] = {kind = "code", width = 1, meaning = "remote encoder: audio present"},
    ["EntradaAV.0.Remote_Audio_Present"] = {kind = "code", width = 1, meaning = "remote encoder: audio present"},
    ["EntradaAV.1.Remote_Audio_Present"] = {kind = "code", width = 1, meaning = "remote encoder: audio present"},
    ["EntradaAV.c.Remote_Modo_Salida"] = {kind = "code", width = 1, meaning = "remote encoder: output mode"},
    ["EntradaAV.0.Remote_Modo_Salida"] = {kind = "code", width = 1, meaning = "remote encoder: output mode"},
    ["EntradaAV.1.Remote_Modo_Salida"] = {kind = "code", width = 1, meaning = "remote encoder: output mode"},
}

local SUB_COMMANDS = {
    [1] = {parameter = "ConfiguracionGen.Modo_Entrada", width = 1},
    [2] = {parameter = "EntradaAV.0.Brillo", width = 1},
    [3] = {parameter = "EntradaAV.0.Contraste", width = 1},
    [4] = {parameter = "EntradaAV.0.Saturacion", width = 1},
    [5] = {parameter = "EntradaAV.0.Sharpness", width = 1},
    [6] = {parameter = "EntradaAV.0.Video_Enc_Standard", width = 1},
    [7] = {parameter = "EntradaAV.0.Video_Aspect_Ratio", width = 1},
    [8] = {parameter = "EntradaAV.0.Bitrate", width = 2},
    [9] = {parameter = "EntradaAV.0.Audio_Bitrate", width = 1},
    [10] = {parameter = "EntradaAV.1.Brillo", width = 1},
    [11] = {parameter = "EntradaAV.1.Contraste", width = 1},
    [12] = {parameter = "EntradaAV.1.Saturacion", width = 1},
    [13] = {parameter = "EntradaAV.1.Sharpness", width = 1},
    [14] = {parameter = "EntradaAV.1.Video_Enc_Standard", width = 1},
    [15] = {parameter = "EntradaAV.1.Video_Aspect_Ratio", width = 1},
    [16] = {parameter = "EntradaAV.1.Bitrate", width = 2},
    [17] = {parameter = "EntradaAV.1.Audio_Bitrate", width = 1, effect = "next_too", also = {"RFOut.Cofdm_Off"}},
    [18] = {parameter = "RFOut.Cofdm_Off", width = 1},
    [19] = {parameter = "RFOut.Canal_Salida", width = 1, effect = "tunes", also = {"RFOut.Frecuencia"}},
    [20] = {parameter = "RFOut.Frecuencia", width = 3, effect = "tunes", also = {"RFOut.Canal_Salida"}},
    [21] = {parameter = "ConfiguracionGen.Atenuacion", width = 1},
    [22] = {parameter = "RFOut.Modo_OFDM", width = 1},
    [23] = {parameter = "RFOut.Ancho_Banda", width = 1},
    [24] = {parameter = "RFOut.Intervalo_Guarda", width = 1},
    [25] = {parameter = "RFOut.Constelacion", width = 1},
    [26] = {parameter = "RFOut.Code_Rate", width = 1},
    [27] = {parameter = "PIDsSalida.0.1.Seleccionado", width = 1, effect = "masks_input", also = {"EntradaAV.0.Remux_Av"}},
    [28] = {parameter = "PIDsSalida.0.2.Seleccionado", width = 1, effect = "masks_input", also = {"EntradaAV.0.Remux_Av"}},
    [29] = {parameter = "ServiciosSalida.0.LCN", width = 2},
    [30] = {parameter = "ServiciosSalida.0.SID", width = 2},
    [31] = {parameter = "ServiciosSalida.0.Nombre", width = 15},
    [32] = {parameter = "PIDsSalida.1.1.Seleccionado", width = 1, effect = "masks_input", also = {"EntradaAV.1.Remux_Av"}},
    [33] = {parameter = "PIDsSalida.1.2.Seleccionado", width = 1, effect = "masks_input", also = {"EntradaAV.1.Remux_Av"}},
    [34] = {parameter = "ServiciosSalida.1.LCN", width = 2},
    [35] = {parameter = "ServiciosSalida.1.SID", width = 2},
    [36] = {parameter = "ServiciosSalida.1.Nombre", width = 15},
    [37] = {parameter = "Red.NetworkName", width = 15},
    [38] = {parameter = "Red.Proveedor", width = 15},
    [39] = {parameter = "Red.NID", width = 2},
    [40] = {parameter = "Red.TSID_Out", width = 2},
    [41] = {parameter = "Red.ONID_Out", width = 2},
    [42] = {parameter = "Red.NIT_Patron", width = 1},
    [43] = {parameter = "Red.LCN_Mode", width = 1},
    [44] = {parameter = "Red.Insertar_TDT", width = 1},
    [45] = {parameter = "IPOut.Ip_Off", width = 1},
    [46] = {parameter = "IPOut.Protocolo", width = 1},
    [47] = {parameter = "IPOut.Qos", width = 1},
    [48] = {parameter = "IPOut.Ttl", width = 1},
    [49] = {parameter = "IPOut.Vlan_Mode", width = 1},
    [50] = {parameter = "IPOut.Vlan_Id", width = 2},
    [51] = {parameter = "IPOut.Vlan_Tpid", width = 2},
    [52] = {parameter = "ServiciosSalida.0.IP_address_source", width = 16},
    [53] = {parameter = "ServiciosSalida.0.IP_port_source", width = 2},
    [55] = {parameter = "ServiciosSalida.0.Nombre_SAP", width = 15},
    [56] = {parameter = "ServiciosSalida.1.IP_address_source", width = 16},
    [57] = {parameter = "ServiciosSalida.1.IP_port_source", width = 2},
    [59] = {parameter = "ServiciosSalida.1.Nombre_SAP", width = 15},
    [60] = {parameter = "IPOut.SAP_Mode", width = 1},
    [61] = {parameter = "IPOut.SAP_Ip", width = 16},
    [62] = {parameter = "IPOut.SAP_User", width = 15},
    [63] = {parameter = "IPOut.SAP_Time", width = 1},
    [66] = {parameter = "ConfiguracionGen.Player_Mode", width = 1},
    [67] = {parameter = "ConfiguracionGen.Ip_Dhcp", width = 1},
    [68] = {parameter = "ConfiguracionGen.Ip_Address", width = 16, effect = "resets_network"},
    [69] = {parameter = "ConfiguracionGen.Ip_Mask", width = 16, effect = "resets_network"},
    [70] = {parameter = "ConfiguracionGen.Ip_Gateway", width = 16, effect = "resets_network"},
    [71] = {parameter = "ConfiguracionGen.Country", width = 15, effect = "changes_country", also = {"ConfiguracionGen.Language", "ConfiguracionGen.Subtimezone", "ConfiguracionGen.Idtimezone", "ConfiguracionGen.Codtimezone", "Red.NID", "Red.NIT_Patron", "Red.LCN_Mode", "RFOut.Modo_OFDM", "RFOut.Intervalo_Guarda", "RFOut.Code_Rate", "RFOut.Canal_Salida", "RFOut.Frecuencia", "RFOut.Ancho_Banda", "EntradaAV.0.Bitrate", "EntradaAV.1.Bitrate"}},
    [72] = {action = "time", request = "time_of_day", effect = "sets_clock", meaning = "time of day"},
    [73] = {action = "date", request = "day", effect = "sets_clock", meaning = "date"},
    [74] = {parameter = "ConfiguracionGen.Subtimezone", width = 1},
    [75] = {parameter = "ConfiguracionGen.Lcd_Bloqueo", width = 1},
    [76] = {parameter = "ConfiguracionGen.Lcd_Codbloqueo", width = 5},
    [77] = {parameter = "IPOut.Mpts_Mode", width = 1},
    [78] = {parameter = "EntradaAV.0.Low_Latency", width = 1},
    [79] = {parameter = "EntradaAV.1.Low_Latency", width = 1},
    [80] = {action = "reset-factory", request = "not_looked_at", effect = "restores_factory", meaning = "back to the factory configuration"},
    [105] = {action = "slave pending", request = "slave_channel", answer = "pending_state", effect = "adds_slave", meaning = "the pending state of a channel"},
    [106] = {action = "slave encoder", request = "slave_channel", answer = "encoder", effect = "adds_slave", meaning = "the encoder settings of a channel"},
    [107] = {action = "slave clear", request = "channel", meaning = "set the pending state of a channel to 0"},
    [108] = {action = "slave confirm", request = "channel", meaning = "set the pending state of a channel to 2"},
    [109] = {action = "slave report", request = "slave_status", answer = "status_stored", effect = "adds_slave", meaning = "store a text as the state of the remote encoder"},
    [110] = {action = "slave register", request = "slave_identity", answer = "master_identity", effect = "adds_slave", meaning = "register a slave"},
    [111] = {action = "slave upgrade", request = "slave", answer = "upgrade", other_answer = "no_slave", effect = "adds_slave", meaning = "whether a slave shall upgrade"},
    [112] = {action = "slave state", request = "slave_state", effect = "adds_slave", meaning = "store a slave's state"},
}

local FINDINGS = {
    {id = "wrong_checksum", severity = "error", text = "wrong checksum"},
    {id = "wrong_crc", severity = "error", text = "wrong CRC"},
    {id = "other_sequence", severity = "warn", text = "another sequence number than 0: the module does not answer"},
    {id = "no_such_command", severity = "warn", text = "a command that the module does not answer"},
    {id = "ends_in_a5", severity = "error", text = "ends in A5: the module takes the second one for the start of a frame, and the next request is lost"},
    {id = "breaks_off", severity = "warn", text = "the frame breaks off"},
    {id = "skipped", severity = "note", text = "bytes outside of frames"},
    {id = "lost", severity = "error", text = "lost: the module takes it for the rest of the frame before"},
    {id = "not_read", severity = "warn", text = "not read: the module answered into this connection"},
    {id = "closed", severity = "warn", text = "the module closed the connection without an answer"},
    {id = "timed_out", severity = "warn", text = "its answer did not come in the time that the master waited"},
    {id = "passed_over", severity = "warn", text = "passed over: the module answered a later request"},
    {id = "other_master", severity = "warn", text = "collected by another master than the one that asked"},
    {id = "no_request", severity = "note", text = "an answer to no request of this capture"},
    {id = "replays", severity = "error", text = "the module carries out old requests again: it must be restarted"},
    {id = "refused", severity = "warn", text = "the module refused the write"},
    {id = "differs", severity = "warn", text = "what is read is not what was written"},
    {id = "resynchronised", severity = "note", text = "re-synchronised: 501 empty connections in a row"},
    {id = "resync_cut_short", severity = "warn", text = "a re-synchronisation that was cut short"},
    {id = "reset", severity = "warn", text = "reset by the master before the module had closed: the module takes one stale byte"},
}

-- What bytes of an info say, as kinds have it. Knows nothing of the analyser.

local function text_of(bytes)
    return bytes:match("^[^\0]*")
end

local function number_of(bytes)
    local number = 0
    for at = 1, #bytes do
        number = number * 256 + bytes:byte(at)
    end
    return number
end

-- Texts are bytes in any encoding: what is no UTF-8, and what no screen shows, becomes \xNN.
local function shown(value)
    if type(value) == "number" then
        return string.format("%d", value)
    end
    local text, at = {}, 1
    while at <= #value do
        local character = value:match("^[\32-\126]+", at) or value:match("^[\xC2-\xDF][\x80-\xBF]", at) or
                              value:match("^[\xE0-\xEF][\x80-\xBF][\x80-\xBF]", at) or
                              value:match("^[\xF0-\xF4][\x80-\xBF][\x80-\xBF][\x80-\xBF]", at)
        text[#text + 1] = character or string.format("\\x%02X", value:byte(at))
        at = at + (character and #character or 1)
    end
    return table.concat(text)
end

-- Which block of the configuration it is, or asks for.
local function block_of(info)
    return info:byte(1) == 2 and 2 or 1
end

local function version(bytes)
    return table.concat({bytes:byte(1, -1)}, ".")
end

-- Frames in bytes: where they begin and end, what stuffing and scrambling hide, whether their codes
-- are right. Knows nothing of the analyser.

local START = 0xA5
local START_CHAR = string.char(START)
local HEAD = 6 -- bytes up to the length

-- The receive machine of a module: takes bytes, removes the stuffing.
local function new_machine()
    return {count = 0, may_be_doubled = false}
end

-- Takes a byte; returns true when it completes a frame.
local function feed(machine, byte)
    local count = machine.count
    if count == 0 then
        if byte == START then
            machine[1], machine.count = byte, 1
        end
        return false
    end
    if byte == START and machine.may_be_doubled and machine[count] == START then
        machine.may_be_doubled = false
        return false
    end
    count = count + 1
    machine[count], machine.count, machine.may_be_doubled = byte, count, true
    if count == HEAD then
        machine.total = HEAD + byte + (machine[2] >= 0x80 and 2 or 1)
    end
    return count == machine.total
end

-- How many bytes the frame at `start` has if none is doubled; nil when that is not known yet, or one is.
local function plain_length(bytes, start)
    local _, control, _, _, _, info_length = bytes:byte(start, start + HEAD - 1)
    if not info_length then
        return nil
    end
    local length = HEAD + info_length + (control >= 0x80 and 2 or 1)
    local doubled = bytes:find(START_CHAR, start + 1, true)
    if start + length - 1 > #bytes or (doubled and doubled < start + length) then
        return nil
    end
    return length
end

-- The first frame from the byte `from` on: where it starts, its length in `bytes`, its area without
-- stuffing, how many bytes were doubled. One that is not complete has no area; without a start byte
-- there is none.
local function take_frame(bytes, from)
    local start = bytes:find(START_CHAR, from, true)
    if not start then
        return nil
    end
    local length = plain_length(bytes, start)
    if length then
        return {start = start, length = length, area = bytes:sub(start, start + length - 1), doubled = 0}
    end
    local machine = new_machine()
    for at = start, #bytes do
        if feed(machine, bytes:byte(at)) then
            length = at - start + 1
            local area = string.char(table.unpack(machine, 1, machine.count))
            local ends_doubled = machine[machine.count] == START and bytes:byte(at + 1) == START
            if ends_doubled then
                length = length + 1
            end
            return {
                start = start, length = length, area = area, doubled = length - #area, ends_doubled = ends_doubled,
            }
        end
    end
    return {start = start}
end

-- CRC-8/MAXIM: x^8 + x^5 + x^4 + 1, reflected, from 0.
local CRC8 = {}
for byte = 0, 255 do
    local crc = byte
    for _ = 1, 8 do
        crc = crc % 2 == 1 and bit.bxor(bit.rshift(crc, 1), 0x8C) or bit.rshift(crc, 1)
    end
    CRC8[byte] = crc
end

-- What an info byte is in CRC8 mode.
local SCRAMBLED = {}
for byte = 0, 255 do
    SCRAMBLED[string.char(byte)] = string.char(bit.bxor(byte, 0x55))
end

local function scramble(area)
    local last = HEAD + area:byte(HEAD)
    return area:sub(1, HEAD) .. area:sub(HEAD + 1, last):gsub(".", SCRAMBLED) .. area:sub(last + 1)
end

-- What both codes of a frame should be, by its area as on the wire.
local function codes_of(area)
    local sum, crc = 0, 0
    for at = 2, HEAD + area:byte(HEAD) do
        local byte = area:byte(at)
        sum = sum + byte
        crc = CRC8[bit.bxor(crc, byte)]
    end
    return (256 - sum % 256) % 256, crc
end

-- A frame's parts, by its area as on the wire.
local function read_area(area)
    local control, _, _, _, info_length = area:byte(2, HEAD)
    local frame = {
        area = area,
        control = control,
        command = control % 16,
        sequence = math.floor(control / 16) % 8,
        crc8_mode = control >= 0x80,
        info_length = info_length,
        checksum = area:byte(HEAD + info_length + 1),
    }
    local crc
    frame.right_checksum, crc = codes_of(area)
    if frame.crc8_mode then
        frame.crc, frame.right_crc = area:byte(HEAD + info_length + 2), crc
    end
    frame.codes_are_right = frame.checksum == frame.right_checksum and frame.crc == frame.right_crc
    frame.plain = frame.crc8_mode and scramble(area) or area
    frame.info = frame.plain:sub(HEAD + 1, HEAD + info_length)
    frame.ends_in_start = area:byte(-1) == START
    return frame
end

-- The same of a record of a trace file, in which the info is in clear, but for that of a frame with
-- another sequence number than its receiver expected.
local function read_traced(area)
    local frame = read_area(area)
    if frame.crc8_mode then
        local clear = read_area(scramble(area))
        if clear.codes_are_right or not frame.codes_are_right then
            frame = clear
        end
    end
    return frame
end

-- The protocol and its fields as the analyser knows them: one for each name, wherever it stands.

local zondar = Proto("zondar", "Zondar")

local SWITCH = {[0] = "off", [1] = "on"}
local STATUS = {[0] = "bad", [1] = "good"}

local fields = {}

local function number_field(abbreviation, name, entry)
    local make = ({ProtoField.uint8, ProtoField.uint16, ProtoField.uint24, ProtoField.uint32})[entry.width]
    local values = entry.values or entry.kind == "switch" and SWITCH or nil
    if entry.unit then
        return make(abbreviation, name, base.UNIT_STRING, {" " .. entry.unit}, nil, entry.meaning)
    end
    return make(abbreviation, name, base.DEC, values, nil, entry.meaning)
end

local function field_for(abbreviation, name, entry)
    if entry.text or entry.kind == "version" then
        return ProtoField.string(abbreviation, name, base.NONE, entry.meaning)
    elseif entry.kind == "sign and magnitude" then
        return ProtoField.int32(abbreviation, name, base.DEC, nil, nil, entry.meaning)
    elseif entry.kind == "bit" then
        return ProtoField.bool(abbreviation, name, base.NONE, {"on", "off"}, 0, entry.meaning)
    elseif entry.kind == "true if zero" then
        return ProtoField.bool(abbreviation, name, base.NONE, {"yes", "no"}, 0, entry.meaning)
    end
    return number_field(abbreviation, name, entry)
end

local function add_field(name, entry)
    if not fields[name] then
        fields[name] = field_for("zondar." .. name:lower(), name, entry)
    end
end

-- Whether a value of that kind says something.
local function has_value(entry)
    return entry.name and entry.kind ~= "value" and entry.kind ~= "sub-command"
end

-- Of commands or sub-commands, by their codes.
local function names_of(rows)
    local names = {}
    for code, row in pairs(rows) do
        names[code] = row.name or row.parameter or row.action
    end
    return names
end

-- The keys of a table, sorted: where several layouts have a name, the same one's words are always taken.
local function in_order(all)
    local keys = {}
    for key in pairs(all) do
        keys[#keys + 1] = key
    end
    table.sort(keys)
    return keys
end

-- What stands in every frame, and what is found out about it.
fields.control = ProtoField.uint8("zondar.control", "Control", base.HEX)
fields.crc8_mode = ProtoField.bool("zondar.crc8_mode", "CRC8 mode", 8, {"on", "off"}, 0x80)
fields.sequence = ProtoField.uint8("zondar.sequence", "Sequence", base.DEC, nil, 0x70)
fields.command = ProtoField.uint8("zondar.command", "Command", base.DEC, names_of(COMMANDS), 0x0F)
fields.header = ProtoField.bytes("zondar.header", "Header")
fields.length = ProtoField.uint8("zondar.length", "Length of the info")
fields.info = ProtoField.bytes("zondar.info", "Info")
fields.sub_command = ProtoField.uint8("zondar.sub_command", "Sub-command", base.DEC, names_of(SUB_COMMANDS))
fields.checksum = ProtoField.uint8("zondar.checksum", "Checksum", base.HEX)
fields.checksum_status = ProtoField.uint8("zondar.checksum.status", "Checksum status", base.DEC, STATUS)
fields.crc = ProtoField.uint8("zondar.crc", "CRC", base.HEX)
fields.crc_status = ProtoField.uint8("zondar.crc.status", "CRC status", base.DEC, STATUS)
fields.doubled = ProtoField.uint16("zondar.doubled", "Doubled bytes")
fields.skipped = ProtoField.bytes("zondar.skipped", "Bytes outside of frames")
fields.unfinished = ProtoField.bytes("zondar.unfinished", "Frame, to be continued")
fields.broken_off = ProtoField.bytes("zondar.broken_off", "Frame that breaks off")
fields.request = ProtoField.bool("zondar.request", "Request")
fields.answer = ProtoField.bool("zondar.answer", "Answer")
fields.request_in = ProtoField.framenum("zondar.request_in", "Request in", base.NONE, frametype.REQUEST)
fields.answer_in = ProtoField.framenum("zondar.answer_in", "Answer in", base.NONE, frametype.RESPONSE)
fields.response_time = ProtoField.relative_time("zondar.response_time", "Response time")
fields.no_answer = ProtoField.string("zondar.no_answer", "No answer")
fields.no_answer_in = ProtoField.framenum("zondar.no_answer_in", "That shows in")
fields.written_in = ProtoField.framenum("zondar.written_in", "Written in")
fields.began_in = ProtoField.framenum("zondar.began_in", "Began in")
fields.empty_connections = ProtoField.uint32("zondar.empty_connections", "Empty connections in a row")

for name, parameter in pairs(PARAMETERS) do
    add_field(name, parameter)
end
for _, name in ipairs(in_order(LAYOUTS)) do
    for _, entry in ipairs(LAYOUTS[name]) do
        if has_value(entry) then
            add_field(entry.name, entry)
        end
    end
end
zondar.fields = fields

local SEVERITIES = {note = expert.severity.NOTE, warn = expert.severity.WARN, error = expert.severity.ERROR}

local experts, texts_of_findings = {}, {}
for _, finding in ipairs(FINDINGS) do
    experts[finding.id] = ProtoExpert.new("zondar." .. finding.id, finding.text, expert.group.PROTOCOL,
                                          SEVERITIES[finding.severity])
    texts_of_findings[finding.id] = finding.text
end
zondar.experts = experts

-- Which answer belongs to which request, and what went wrong: by the module's own rules, from
-- connections and frames in the order of packets. Knows nothing of the analyser.
--
-- A module reads its requests from one connection until that ends; each answer goes into the next one
-- that somebody opens. So an answer is matched over all connections of a module: in the order of
-- requests, whoever sent them.

local ATTEMPTS = 501 -- failed reads after which a module gives up a frame
local SERIES = 8 -- empty connections that are no accident any more
local REPLAYS = 3 -- a sound module has two answers left at most

-- What was found out, by packet.
local told = {}

local modules, connections = {}, {}

local function forget_everything()
    told.frames, told.packets, told.elsewhere, told.doubles = {}, {}, {}, {}
    modules, connections = {}, {}
end

local function listed(lists, key)
    local list = lists[key]
    if not list then
        list = {}
        lists[key] = list
    end
    return list
end

-- A finding of a frame, by its note, or of a packet. It is told where it belongs when the analyser
-- comes by again, and where it was found when it does not.
local function found(note, packet, id, found_in, detail)
    local finding = {id = id, packet = packet, found_in = found_in, detail = detail}
    local list = note and note.findings or listed(told.packets, packet)
    list[#list + 1] = finding
    if found_in ~= packet then
        list = listed(told.elsewhere, found_in)
        list[#list + 1] = finding
    end
end

local function module_at(address)
    local module = modules[address]
    if not module then
        module = {queue = {}, empty = 0, stray = 0, written = {}}
        modules[address] = module
    end
    return module
end

-- `host` is the master's address without its port; nil in a trace file, which knows no connections.
-- `waiting` are its requests in the module's queue. Of one direction of it, by whether that is the
-- requests': a frame that is not complete yet, and whether the last one still awaits the second of a byte
-- that is sent twice.
local function new_connection(module, host)
    return {module = module, host = host, unfinished = {}, awaits_double = {}, waiting = 0}
end

-- `master` and `address` of the module with their ports, `host` of the master without.
local function connection_between(master, host, address)
    local key = master .. " " .. address
    local connection = connections[key]
    if not connection then
        connection = new_connection(module_at(address), host)
        connections[key] = connection
    end
    return connection, key
end

-- What was written ------------------------------------------------------------------------------

-- What reading back must give after a value was written; nil when that cannot be said.
local function read_back_of(row, value)
    local parameter = PARAMETERS[row.parameter]
    if parameter.text then
        if not value:find("\0", 1, true) then
            return nil
        end
        local text = text_of(value):gsub("%%", " ", 1)
        return text:sub(1, math.min(row.width - 1, parameter.shown or row.width))
    end
    if #value < row.width then
        return nil
    end
    local number = number_of(value:sub(1, row.width))
    if parameter.not_stored then
        return 0
    elseif row.effect == "masks_input" then
        return number == 1 and 1 or 0
    end
    return parameter.stored_as and parameter.stored_as[number] or number
end

-- Takes in that a write was carried out, or, in doubt, that it may have been.
local function note_write(module, request, in_doubt)
    local row = SUB_COMMANDS[request.info:byte(1)]
    if not row then
        return
    end
    if row.effect == "restores_factory" then
        module.written = {}
    end
    local wanted = row.parameter and not in_doubt and read_back_of(row, request.info:sub(2)) or nil
    for _, name in ipairs(row.also or {}) do
        module.written[name] = nil
    end
    if row.parameter then
        module.written[row.parameter] = wanted and {value = wanted, packet = request.packet}
    end
    if row.effect == "next_too" and wanted then
        module.written[row.also[1]] = {value = wanted, packet = request.packet}
    end
end

local function compare_with_written(module, answer, note)
    local layout = LAYOUTS["configuration_" .. block_of(answer.info)]
    if #answer.info ~= layout.length then
        return
    end
    for _, field in ipairs(layout) do
        local written = field.parameter and module.written[field.parameter]
        if written then
            module.written[field.parameter] = nil
            local bytes = answer.info:sub(field.at + 1, field.at + field.width)
            local read = type(written.value) == "string" and text_of(bytes) or number_of(bytes)
            if read ~= written.value then
                local detail = string.format("%s: %s was written, %s is read", field.parameter,
                                             shown(written.value), shown(read))
                found(note, answer.packet, "differs", answer.packet, detail)
                note.written_in = note.written_in or {}
                table.insert(note.written_in, written.packet)
            end
        end
    end
end

-- Requests --------------------------------------------------------------------------------------

-- The request will have no answer, as is found out in that packet.
local function without_answer(request, reason, found_in)
    found(request.note, request.packet, reason, found_in)
    request.note.no_answer, request.note.no_answer_in = reason, found_in
end

-- Takes those requests out of the queue that `is_meant` says. The module had read them, unless it
-- answered into their connection: what they were to write may have been written.
local function give_up_where(module, is_meant, reason, found_in)
    local rest = {}
    for position, request in ipairs(module.queue) do
        if is_meant(request, position) then
            request.connection.waiting = request.connection.waiting - 1
            without_answer(request, reason, found_in)
            if request.command == WRITE and reason ~= "not_read" then
                note_write(module, request, true)
            end
        else
            rest[#rest + 1] = request
        end
    end
    module.queue = rest
end

-- Those that came on that connection. Most have none: a long queue is left alone.
local function give_up_on(connection, reason, found_in)
    if connection.waiting > 0 then
        give_up_where(connection.module, function(request) return request.connection == connection end, reason,
                      found_in)
    end
end

-- Lets the module read bytes that it takes for the rest of a frame. What it makes of them is no request
-- that anybody sent.
local function read_on(module, bytes)
    for at = 1, #bytes do
        if feed(module.machine, bytes:byte(at)) then
            module.machine = new_machine()
        end
    end
    if module.machine.count == 0 then
        module.machine = nil
    end
end

-- What is wrong with a frame by itself; the first of it is why a request has no answer.
local function faults_of(frame, is_request)
    local faults = {}
    local function check(id, holds)
        if holds then
            faults[#faults + 1] = id
        end
    end
    check("wrong_checksum", frame.checksum ~= frame.right_checksum)
    check("wrong_crc", frame.crc ~= frame.right_crc)
    if frame.codes_are_right then
        check("other_sequence", frame.sequence ~= 0)
        check("no_such_command", is_request and not COMMANDS[frame.command])
    end
    return faults
end

local function new_note(frame, is_request)
    local note = {findings = {}}
    local faults = faults_of(frame, is_request)
    for _, id in ipairs(faults) do
        found(note, frame.packet, id, frame.packet)
    end
    if is_request and faults[1] then
        note.no_answer, note.no_answer_in = faults[1], frame.packet
    end
    return note
end

-- Bytes by a master that belong to no frame, or to one that breaks off.
local function took_bytes(connection, bytes)
    if connection.module.machine and not connection.answered then
        read_on(connection.module, bytes)
    end
end

-- The module took a frame for complete with the first of two bytes A5: the second one starts another.
local function took_double(connection)
    if not connection.answered then
        connection.module.machine = connection.module.machine or new_machine()
        feed(connection.module.machine, START)
    end
end

-- `wire` is the frame as sent, `frame` knows its packet, time and connection. Returns its note.
local function took_request(frame, wire)
    local connection = frame.connection
    local module = connection.module
    local note = new_note(frame, true)
    frame.note = note
    if frame.ends_in_start then
        found(note, frame.packet, "ends_in_a5", frame.packet)
    end
    if connection.answered then
        without_answer(frame, "not_read", frame.packet)
    elseif connection.module_ended then
        without_answer(frame, "closed", frame.packet)
    elseif module.machine then
        read_on(module, wire)
        without_answer(frame, "lost", frame.packet)
    else
        if not note.no_answer then
            module.queue[#module.queue + 1] = frame
            connection.waiting = connection.waiting + 1
        end
        if frame.ends_doubled then
            took_double(connection)
        end
    end
    return note
end

-- Answers ---------------------------------------------------------------------------------------

local function took_strange_answer(connection, answer)
    local module = connection.module
    local id = "no_request"
    if connection.opened and not connection.sent then
        module.stray = module.stray + 1
        if module.stray >= REPLAYS then
            id = "replays"
        end
    end
    found(answer.note, answer.packet, id, answer.packet)
end

local function is_refusal(answer)
    return answer.command == WRITE and answer.codes_are_right and #answer.info == LAYOUTS.refusal.length and
               not answer.info:find("[^\0]")
end

local function took_matched_answer(connection, request, answer)
    local module, note = connection.module, answer.note
    module.stray = 0
    request.connection.waiting = request.connection.waiting - 1
    note.request_in, note.request = request.packet, request
    request.note.answer_in = answer.packet
    if answer.time then -- in a trace file they are too short
        note.response_time = answer.time - request.time
        request.note.response_time = note.response_time
    end
    if request.connection.host ~= connection.host then
        found(note, answer.packet, "other_master", answer.packet)
    end
    if answer.command == WRITE then
        note_write(module, request, #answer.info ~= 0 or not answer.codes_are_right)
    elseif answer.command == CONFIGURATION and #answer.info > 0 and answer.codes_are_right then
        compare_with_written(module, answer, note)
    end
end

local function module_sent(connection)
    connection.module.empty = 0
    connection.answered = true
end

-- Where the first request with that command is; nothing when there is none.
local function place_of(queue, command)
    for position, request in ipairs(queue) do
        if request.command == command then
            return position
        end
    end
end

-- `frame` knows its packet, time and connection. Returns its note.
local function took_answer(frame)
    local connection = frame.connection
    local module = connection.module
    local note = new_note(frame, false)
    frame.note = note
    if connection.host then -- of a trace file nothing is known of connections
        module_sent(connection)
        give_up_on(connection, "not_read", frame.packet)
    end
    local match = place_of(module.queue, frame.command)
    if match then
        if match > 1 then
            give_up_where(module, function(_, position) return position < match end, "passed_over", frame.packet)
        end
        took_matched_answer(connection, table.remove(module.queue, 1), frame)
    else
        took_strange_answer(connection, frame)
    end
    if is_refusal(frame) then
        found(note, frame.packet, "refused", frame.packet)
    end
    return note
end

-- The bytes of a packet that the recording has cut: what was asked, answered and written is not known.
local function lose_sight(module)
    for _, request in ipairs(module.queue) do
        request.connection.waiting = 0
    end
    module.queue, module.machine, module.written = {}, nil, {}
end

-- A record of a trace file for a reception that ended by time-out: the answer to what was asked did not
-- come; without that somebody began a frame.
local function took_nothing(module, is_request, packet)
    if is_request or #module.queue == 0 then
        found(nil, packet, "breaks_off", packet)
    end
    if not is_request then
        give_up_where(module, function() return true end, "timed_out", packet)
    end
end

-- Connections -----------------------------------------------------------------------------------

-- A SYN begins a new connection, unless it is the one that began this one, seen twice.
local function opened(key, connection, sequence)
    if connection.sequence == sequence and not connection.sent and not connection.master_ended then
        return
    end
    local new = new_connection(connection.module, connection.host)
    new.opened, new.sequence = true, sequence
    connections[key] = new
end

-- `behind` is the sequence number behind the bytes. Those that were there before, as in a probe that
-- keeps a connection, are nothing new.
local function master_sent(connection, packet, behind)
    local module = connection.module
    if connection.behind and (behind - connection.behind - 1) % 2 ^ 32 >= 2 ^ 31 then
        return
    end
    connection.behind = behind
    if module.empty >= SERIES and module.empty < ATTEMPTS then
        local detail = string.format("%d empty connections in a row", module.empty)
        found(nil, packet, "resync_cut_short", packet, detail)
    end
    module.empty, module.stray = 0, 0
    connection.sent = true
end

-- What stands there of a frame that nobody will send the rest of.
local function break_off(connection, is_request, packet)
    local rest = connection.unfinished[is_request]
    connection.unfinished[is_request] = nil
    if not rest then
        return
    end
    found(nil, packet, "breaks_off", packet)
    local list = listed(told.packets, packet)
    list.broken_off, list.began_in = rest.bytes, rest.packet
    if is_request and not connection.answered then
        connection.module.machine = connection.module.machine or new_machine()
        read_on(connection.module, rest.bytes)
    end
end

local function master_ended(connection, packet, by_reset)
    break_off(connection, true, packet)
    if by_reset and connection.sent and not connection.answered and not connection.master_ended and
        not connection.module_ended then
        found(nil, packet, "reset", packet)
    end
    connection.master_ended = true
end

local function count_empty(connection, packet)
    local module = connection.module
    module.empty = module.empty + 1
    listed(told.packets, packet).empty_connections = module.empty
    if module.empty == ATTEMPTS then
        module.machine = nil
        found(nil, packet, "resynchronised", packet)
    end
end

-- Requests that come behind the end have no answer either: each is followed by a reset.
local function module_ended(connection, packet, by_reset)
    local module = connection.module
    give_up_on(connection, "closed", packet)
    if by_reset and connection.opened and not connection.accepted then
        -- Nobody listens: a module that this master knew is gone.
        give_up_where(module, function(request) return request.connection.host == connection.host end, "closed",
                      packet)
    end
    if connection.module_ended then
        return
    end
    connection.module_ended = true
    break_off(connection, false, packet)
    if connection.master_ended and not connection.sent and not connection.answered then
        count_empty(connection, packet)
    elseif not connection.master_ended and not connection.answered then
        module.machine = nil
    end
end

-- What a frame says: in a line, and as a tree.

-- What the bytes of an entry of a layout say, for a line of text.
local function value_in(entry, bytes)
    if entry.text then
        return shown(text_of(bytes))
    elseif entry.kind == "version" then
        return version(bytes)
    end
    return shown(number_of(bytes))
end

local function text_of_action(row, info)
    local values = {}
    for _, entry in ipairs(LAYOUTS[row.request]) do
        if has_value(entry) and entry.at + entry.width <= #info then
            local bytes = info:sub(entry.at + 1, entry.at + entry.width)
            values[#values + 1] = entry.name .. " " .. value_in(entry, bytes)
        end
    end
    return row.action .. (#values > 0 and ": " .. table.concat(values, ", ") or "")
end

local function text_of_write(info)
    if #info == 0 then
        return "write without a sub-command"
    end
    local row = SUB_COMMANDS[info:byte(1)]
    if not row then
        return string.format("write, unknown sub-command %d", info:byte(1))
    elseif row.action then
        return text_of_action(row, info)
    end
    local parameter, value = PARAMETERS[row.parameter], info:sub(2)
    if parameter.text then
        return "write " .. row.parameter .. " = " .. shown(text_of(value))
    elseif #value < row.width then
        return "write " .. row.parameter .. ", cut short"
    end
    return "write " .. row.parameter .. " = " .. shown(number_of(value:sub(1, row.width))) ..
               (parameter.unit and " " .. parameter.unit or "")
end

local function text_of_request(frame)
    local command = COMMANDS[frame.command]
    if not command then
        return string.format("command %d", frame.command)
    elseif frame.command == WRITE then
        return text_of_write(frame.info)
    elseif frame.command == CONFIGURATION then
        return #frame.info == 1 and "configuration " .. block_of(frame.info) or
                   "configuration, request of a wrong length"
    end
    return command.name
end

local function text_of_written(frame, request)
    local row = SUB_COMMANDS[(request or frame).info:byte(1)]
    local name = row and (row.action or "write " .. row.parameter) or "write"
    return name .. (is_refusal(frame) and ", refused" or "")
end

-- An empty answer says what it is about by its request alone.
local function text_of_answer(frame, request)
    local command = COMMANDS[frame.command]
    if not command then
        return string.format("answer: command %d", frame.command)
    elseif frame.command == WRITE then
        return "answer: " .. text_of_written(frame, request)
    elseif frame.command == CONFIGURATION then
        return "answer: " .. (#frame.info > 0 and "configuration " .. block_of(frame.info) or "no configuration")
    end
    return "answer: " .. command.name
end

-- What is wrong in a word or two.
local function remarks(note)
    local text = ""
    for _, finding in ipairs(note.findings) do
        text = text .. " [" .. finding.id:gsub("_", " "):gsub("crc", "CRC"):gsub("a5", "A5") .. "]"
    end
    return text
end

local function text_of_frame(frame, note, is_request)
    if not frame.codes_are_right then
        return (is_request and "request" or "answer") .. ", damaged"
    end
    return is_request and text_of_request(frame) or text_of_answer(frame, note.request)
end

-- The tree ----------------------------------------------------------------------------------------

local function add_finding(item, finding)
    local text = texts_of_findings[finding.id]
    if finding.detail then
        text = text .. ": " .. finding.detail
    end
    item:add_proto_expert_info(experts[finding.id], text)
end

-- Those that are to be told in this packet: all about it, when they are known.
local function add_findings(item, findings, pinfo)
    for _, finding in ipairs(findings) do
        if pinfo.visited or finding.found_in == finding.packet then
            add_finding(item, finding)
        end
    end
end

local function add_text(tree, field, range, text)
    if #text == 0 then
        return tree:add(field, range, "")
    end
    return (tree:add_packet_field(field, range(0, #text), ENC_UTF_8))
end

-- Adds what the bytes at `range` say; they are `bytes`.
local function add_value(tree, field, range, bytes, entry)
    local kind = entry.kind
    if kind == "line" then
        return add_text(tree, field, range, text_of(bytes):match("^[^\n]*"))
    elseif entry.text then
        return add_text(tree, field, range, text_of(bytes))
    elseif kind == "version" then
        return tree:add(field, range, version(bytes))
    elseif kind == "sign and magnitude" then
        local byte = bytes:byte()
        return tree:add(field, range, byte < 128 and byte or 128 - byte)
    elseif kind == "bit" then
        return tree:add(field, range, bit.band(bytes:byte(), bit.lshift(1, entry.bit)) ~= 0)
    elseif kind == "true if zero" then
        return tree:add(field, range, bytes:byte() == 0)
    end
    return tree:add(field, range)
end

local function add_named(tree, name, range, bytes, entry)
    local item = add_value(tree, fields[name], range, bytes, entry)
    if tree.visible and entry.meaning then
        item:append_text(" (" .. entry.meaning .. ")")
    end
end

-- The name of a parameter of an encoder has the channel that the answer tells.
local function with_channel(name, info)
    local channel = info:byte(2)
    return channel < 2 and name:gsub("%.c%.", "." .. channel .. ".") or name
end

-- Adds those entries of a layout that are there whole. `range` is that of the info.
local function add_layout(tree, layout, range, info)
    for _, entry in ipairs(layout) do
        if entry.at + entry.width <= #info and (entry.parameter or has_value(entry)) then
            local bytes = info:sub(entry.at + 1, entry.at + entry.width)
            local name = entry.name or with_channel(entry.parameter, info)
            add_named(tree, name, range(entry.at, entry.width), bytes, PARAMETERS[name] or entry)
        end
    end
end

local function add_parameter(tree, row, range, info)
    local parameter, value = PARAMETERS[row.parameter], info:sub(2)
    if #value > 0 and (parameter.text or #value >= row.width) then
        local width = parameter.text and #value or row.width
        add_named(tree, row.parameter, range(1, width), value:sub(1, width), parameter)
    elseif parameter.text then
        add_named(tree, row.parameter, range(0, 1), "", parameter)
    end
end

local function add_sub_command(tree, range, frame, is_request)
    local info = frame.info
    if not is_request and is_refusal(frame) then
        return
    end
    tree:add(fields.sub_command, range(0, 1))
    local row = SUB_COMMANDS[info:byte(1)]
    if not row then
        return
    elseif row.parameter then
        if is_request then
            add_parameter(tree, row, range, info)
        end
        return
    end
    local layout = is_request and row.request or row.answer
    if not is_request and row.other_answer and #info ~= LAYOUTS[row.answer].length then
        layout = row.other_answer
    end
    if layout then
        add_layout(tree, LAYOUTS[layout], range, info)
    end
end

local function add_info(tree, range, frame, is_request)
    local item = tree:add(fields.info, range)
    if not frame.codes_are_right or not COMMANDS[frame.command] then
        return
    elseif frame.command == WRITE then
        add_sub_command(item, range, frame, is_request)
    elseif frame.command == CONFIGURATION then
        local layout = is_request and LAYOUTS.block or LAYOUTS["configuration_" .. block_of(frame.info)]
        add_layout(item, layout, range, frame.info)
    elseif not is_request then
        add_layout(item, LAYOUTS[COMMANDS[frame.command].answer], range, frame.info)
    end
end

local function add_code(tree, field, status_field, range, code, right)
    local is_right = code == right
    local item = tree:add(field, range)
    item:append_text(is_right and " [right]" or string.format(" [wrong, should be 0x%02x]", right))
    item:add(status_field, is_right and 1 or 0):set_generated()
end

local function add_links(tree, note, is_request)
    tree:add(is_request and fields.request or fields.answer, true):set_generated()
    if note.request_in then
        tree:add(fields.request_in, note.request_in):set_generated()
    end
    if note.answer_in then
        tree:add(fields.answer_in, note.answer_in):set_generated()
    end
    if note.response_time then
        local seconds = math.floor(note.response_time)
        local nanoseconds = math.floor((note.response_time - seconds) * 1e9 + 0.5)
        tree:add(fields.response_time, NSTime.new(seconds, nanoseconds)):set_generated()
    end
    for _, packet in ipairs(note.written_in or {}) do
        tree:add(fields.written_in, packet):set_generated()
    end
    if note.no_answer then
        tree:add(fields.no_answer, texts_of_findings[note.no_answer]):set_generated()
        if note.no_answer_in ~= note.packet then
            tree:add(fields.no_answer_in, note.no_answer_in):set_generated()
        end
    end
end

-- Adds a frame whose area, plain, is what `source` shows.
local function add_frame(item, source, frame, note, is_request)
    local control = item:add(fields.control, source(1, 1))
    control:add(fields.crc8_mode, source(1, 1))
    control:add(fields.sequence, source(1, 1))
    control:add(fields.command, source(1, 1))
    item:add(fields.header, source(2, 3))
    item:add(fields.length, source(5, 1))
    if frame.info_length > 0 then
        add_info(item, source(HEAD, frame.info_length), frame, is_request)
    end
    local behind = HEAD + frame.info_length
    add_code(item, fields.checksum, fields.checksum_status, source(behind, 1), frame.checksum,
             frame.right_checksum)
    if frame.crc then
        add_code(item, fields.crc, fields.crc_status, source(behind + 1, 1), frame.crc, frame.right_crc)
    end
    add_links(item, note, is_request)
end

-- Where frames come from: TCP, trace files, and what TCP alone knows of connections.

local tcp_ports = DissectorTable.get("tcp.port")
local packet_kinds = DissectorTable.get("wtap_encap")

-- The packet that is dissected at present, how many runs of bytes and frames it had so far, and their
-- lines.
local present, run_count, frame_count, lines = nil, 0, 0, {}

local function begin_packet(number)
    if number ~= present then
        present, run_count, frame_count, lines = number, 0, 0, {}
    end
end

-- Whether a port is a module's, by who dissects it; `known_ports` forgets with each capture.
local known_ports = {}
local handle -- of the dissector
local zondar_at_port -- what stands in the table for the ports of the preference

local function is_ours(dissector)
    local name = dissector and tostring(dissector)
    return name == zondar.name or name == zondar_at_port.name
end

local function is_module(port)
    local is = known_ports[port]
    if is == nil then
        is = is_ours(tcp_ports:get_dissector(port))
        known_ports[port] = is
    end
    return is
end

-- Whether the master sent a packet of these ends. When both ports are modules', the connection that is
-- known tells, and else who sends first.
local function is_from_master(from, source_port, to, destination_port)
    if is_module(source_port) and is_module(destination_port) then
        return not connections[to .. " " .. from]
    end
    return is_module(destination_port)
end

-- The connection that a packet of these ends belongs to, its key, and whether the master sent it.
local function connection_of(source, source_port, destination, destination_port)
    local from, to = source .. ":" .. source_port, destination .. ":" .. destination_port
    if is_from_master(from, source_port, to, destination_port) then
        local connection, key = connection_between(from, source, to)
        return connection, key, true
    end
    local connection, key = connection_between(to, destination, from)
    return connection, key, false
end

local function ends_of(pinfo)
    return tostring(pinfo.src), pinfo.src_port, tostring(pinfo.dst), pinfo.dst_port
end

-- What is known of the packet's next frame; `take` finds it out when the packet comes by first.
local function next_note(pinfo, take)
    frame_count = frame_count + 1
    local notes = listed(told.frames, pinfo.number)
    if not pinfo.visited then
        local note = take()
        note.packet = pinfo.number
        notes[frame_count] = note
    end
    return notes[frame_count] or {findings = {}, packet = pinfo.number}
end

local function add_line(pinfo, text)
    lines[#lines + 1] = text
    pinfo.cols.protocol:set("ZONDAR")
    pinfo.cols.info:set(table.concat(lines, " | "))
end

-- Shows a frame; its area, plain, is what `source` holds, or a tvb of its own when that is nil.
local function show_frame(tree, range, pinfo, frame, note, is_request, source)
    local text = text_of_frame(frame, note, is_request)
    add_line(pinfo, text .. remarks(note))
    local is_wanted = tree:referenced(handle)
    if not is_wanted and #note.findings == 0 then
        return
    end
    local item = tree:add(zondar, range, "Zondar, " .. text)
    add_findings(item, note.findings, pinfo)
    if is_wanted then
        source = source or ByteArray.new(frame.plain, true):tvb("Frame in clear")
        add_frame(item, source, frame, note, is_request)
        if frame.doubled and frame.doubled > 0 then
            item:add(fields.doubled, frame.doubled):set_generated()
        end
    end
end

-- TCP -------------------------------------------------------------------------------------------

local function show_skipped(tree, pinfo, range)
    local item = tree:add(zondar, range, "Zondar, bytes outside of frames")
    item:add(fields.skipped, range)
    add_finding(item, {id = "skipped"})
    add_line(pinfo, string.format("%d bytes outside of frames", range:len()))
end

local function took_frame(connection, is_request, frame, wire, pinfo)
    frame.packet, frame.time, frame.connection = pinfo.number, pinfo.rel_ts, connection
    if is_request then
        return took_request(frame, wire)
    end
    return took_answer(frame)
end

-- What stands at `range` of a frame: more is to come, or never will when the recording has cut the
-- packet.
local function take_beginning(connection, is_request, range, is_cut, pinfo, tree)
    if not pinfo.visited then
        if is_cut then
            lose_sight(connection.module)
        else
            connection.unfinished[is_request] = {bytes = range:raw(), packet = pinfo.number}
        end
    end
    if pinfo.can_desegment > 0 then
        pinfo.desegment_offset = range:offset()
        pinfo.desegment_len = DESEGMENT_ONE_MORE_SEGMENT
    else
        tree:add(zondar, range, "Zondar, incomplete"):add(fields.unfinished, range)
    end
end

-- A whole frame, as `take_frame` found it, which stands at `range`. When it is the last of these bytes,
-- the second of a byte that is sent twice may be still to come.
local function take_whole(connection, is_request, taken, range, is_last, pinfo, tree)
    local frame = read_area(taken.area)
    frame.doubled, frame.ends_doubled = taken.doubled, taken.ends_doubled
    if not pinfo.visited then
        connection.awaits_double[is_request] = is_last and frame.ends_in_start and not frame.ends_doubled
    end
    local note = next_note(pinfo, function()
        return took_frame(connection, is_request, frame, range:raw(), pinfo)
    end)
    local is_plain = taken.doubled == 0 and not frame.crc8_mode
    show_frame(tree, range, pinfo, frame, note, is_request, is_plain and range or nil)
end

-- Whether a run of bytes begins with the second of two that ended the frame before it.
local function begins_with_double(connection, is_request, bytes, pinfo)
    run_count = run_count + 1
    if not pinfo.visited and connection.awaits_double[is_request] then
        connection.awaits_double[is_request] = nil
        if bytes:byte(1) == START then
            listed(told.doubles, pinfo.number)[run_count] = true
            if is_request then
                took_double(connection)
            end
        end
    end
    local doubles = told.doubles[pinfo.number]
    return doubles and doubles[run_count]
end

function zondar.dissector(tvb, pinfo, tree)
    if pinfo.in_error_pkt then
        return 0 -- what an ICMP message quotes was seen before
    end
    begin_packet(pinfo.number)
    local bytes = tvb:raw()
    local connection, _, is_request = connection_of(ends_of(pinfo))
    if not pinfo.visited then
        connection.unfinished[is_request] = nil
    end
    local from = begins_with_double(connection, is_request, bytes, pinfo) and 2 or 1
    while from <= #bytes do
        local taken = take_frame(bytes, from)
        local start = taken and taken.start or #bytes + 1
        if start > from then
            if is_request and not pinfo.visited then
                took_bytes(connection, bytes:sub(from, start - 1))
            end
            show_skipped(tree, pinfo, tvb(from - 1, start - from))
        end
        if not taken then
            break
        elseif not taken.area then
            take_beginning(connection, is_request, tvb(start - 1), tvb:reported_len() > tvb:len(), pinfo, tree)
            break
        end
        from = start + taken.length
        take_whole(connection, is_request, taken, tvb(start - 1, taken.length), from > #bytes, pinfo, tree)
    end
    return #bytes
end

-- Trace files -----------------------------------------------------------------------------------

local trace = Proto("zondar_trace", "Zondar trace file")
local other_traces = packet_kinds:get_dissector(wtap.USER0)

-- A trace file has one module, and of whose side it is, its first frame tells: that is a request.
local traced, direction_of_requests

-- A record is its direction and a frame as long as it says, which begins with a start byte, or is
-- empty when a reception ended by time-out.
local function is_record(bytes)
    if #bytes < 2 + HEAD + 1 or #bytes ~= 1 + HEAD + bytes:byte(1 + HEAD) + 2 or bytes:byte(1) > 1 then
        return false
    end
    return bytes:byte(2) == START or not bytes:find("[^\0]", 2)
end

local function show_record(tvb, pinfo, tree, bytes, is_request)
    local info_length = bytes:byte(1 + HEAD)
    local in_crc8_mode = bytes:byte(3) >= 0x80
    local frame = read_traced(bytes:sub(2, 1 + HEAD + info_length + (in_crc8_mode and 2 or 1)))
    local note = next_note(pinfo, function()
        frame.packet, frame.connection = pinfo.number, traced
        return is_request and took_request(frame, "") or took_answer(frame)
    end)
    local range = tvb(1, #frame.area)
    local is_plain = frame.plain == bytes:sub(2, 1 + #frame.area)
    show_frame(tree, range, pinfo, frame, note, is_request, is_plain and range or nil)
end

function trace.dissector(tvb, pinfo, tree)
    local bytes = tvb:raw()
    if not is_record(bytes) then
        return other_traces and other_traces:call(tvb, pinfo, tree) or 0
    end
    begin_packet(pinfo.number)
    local direction, is_frame = bytes:byte(1), bytes:byte(2) == START
    if is_frame then
        direction_of_requests = direction_of_requests or direction
    end
    local is_request = direction == direction_of_requests
    pinfo.cols.src:set(is_request and "master" or "module")
    pinfo.cols.dst:set(is_request and "module" or "master")
    if is_frame then
        show_record(tvb, pinfo, tree, bytes, is_request)
    else
        if not pinfo.visited then
            took_nothing(traced.module, is_request, pinfo.number)
        end
        add_line(pinfo, "nothing came in time")
        tree:add(zondar, tvb(1), "Zondar, nothing came in time")
    end
    return #bytes
end

packet_kinds:add(wtap.USER0, trace)

-- Connections -----------------------------------------------------------------------------------

-- Segments without bytes reach no dissector of what is above TCP: this one comes behind all others.
local connections_seen = Proto("zondar_connections", "Zondar connections")

local TCP_PORT = 2 -- the analyser's word for a kind of ports
local TCP = 6 -- as IPv4 has it
local ADDRESS_LENGTH = 4 -- of IPv4
local MOST_HEADERS = 128 -- bytes up to the end of a TCP header

-- By its text, the bytes of an IPv4 address; empty for any other.
local addresses = setmetatable({}, {__index = function(known, text)
    local a, b, c, d = text:match("^(%d+)%.(%d+)%.(%d+)%.(%d+)$")
    known[text] = a and string.char(a, b, c, d) or ""
    return known[text]
end})

local function two_bytes(bytes, at)
    local high, low = bytes:byte(at, at + 1)
    return high * 256 + low
end

-- The TCP header of a packet on whatever kind of network, found by its ends: flags, sequence number,
-- length of what it carries. Nothing when it has none.
local function tcp_header(tvb, source, source_port, destination, destination_port)
    local pair = addresses[source] .. addresses[destination]
    local bytes = tvb:raw(0, math.min(tvb:len(), MOST_HEADERS))
    local at = #pair == 2 * ADDRESS_LENGTH and bytes:find(pair, 1, true)
    while at do
        local ip = at - 12
        local length = ip > 0 and bytes:byte(ip) % 16 * 4 or 0
        local tcp = ip + length
        if length >= 20 and bytes:byte(ip + 9) == TCP and tcp + 19 <= #bytes and
            two_bytes(bytes, tcp) == source_port and two_bytes(bytes, tcp + 2) == destination_port then
            local header = math.floor(bytes:byte(tcp + 12) / 16) * 4
            return bytes:byte(tcp + 13), two_bytes(bytes, tcp + 4) * 65536 + two_bytes(bytes, tcp + 6),
                   two_bytes(bytes, ip + 2) - length - header
        end
        at = bytes:find(pair, at + 1, true)
    end
end

local FIN, SYN, RST, ACK = 0x01, 0x02, 0x04, 0x10

local function take_segment(tvb, packet, ...)
    local flags, sequence, length = tcp_header(tvb, ...)
    if not flags then
        return
    end
    local connection, key, from_master = connection_of(...)
    local function has(flag)
        return bit.band(flags, flag) ~= 0
    end
    if has(SYN) then
        if not from_master then
            connection.accepted = true
        elseif not has(ACK) then
            opened(key, connection, sequence)
        end
        return
    end
    if length > 0 then
        if from_master then
            master_sent(connection, packet, (sequence + length) % 2 ^ 32)
        else
            module_sent(connection)
        end
    end
    if has(FIN) or has(RST) then
        if from_master then
            master_ended(connection, packet, has(RST))
        else
            module_ended(connection, packet, has(RST))
        end
    end
end

-- What belongs to no frame of this packet: findings of connections, and such of earlier packets that
-- will not come by again.
local function show_packet(tvb, pinfo, tree, of_packet, of_others)
    if pinfo.visited and not of_packet then
        return
    end
    local item = tree:add(zondar, tvb(), "Zondar, connection")
    if of_packet then
        if of_packet.empty_connections then
            item:add(fields.empty_connections, of_packet.empty_connections):set_generated()
        end
        if of_packet.broken_off then
            local bytes = ByteArray.new(of_packet.broken_off, true):tvb("Frame that breaks off")
            item:add(fields.broken_off, bytes())
            item:add(fields.began_in, of_packet.began_in):set_generated()
        end
        add_findings(item, of_packet, pinfo)
        pinfo.cols.info:append(remarks({findings = of_packet}))
    end
    if of_others and not pinfo.visited then
        for _, finding in ipairs(of_others) do
            add_finding(item, {id = finding.id, detail = string.format("packet %d", finding.packet)})
        end
    end
end

function connections_seen.dissector(tvb, pinfo, tree)
    present = nil
    local packet = pinfo.number
    if not pinfo.visited and pinfo.port_type == TCP_PORT and
        (is_module(pinfo.dst_port) or is_module(pinfo.src_port)) then
        take_segment(tvb, packet, ends_of(pinfo))
    end
    local of_packet, of_others = told.packets[packet], told.elsewhere[packet]
    if of_packet or of_others then
        show_packet(tvb, pinfo, tree, of_packet, of_others)
    end
    return 0
end

register_postdissector(connections_seen)

-- Ports -----------------------------------------------------------------------------------------

-- In the table stands another protocol for the ports of the preference than for those that a user
-- chooses by Decode As: so one does not take away what the other has set.
zondar_at_port = Proto("zondar_at_port", "Zondar, by its port")

function zondar_at_port.dissector(tvb, pinfo, tree)
    if pinfo.can_desegment > 0 then
        pinfo.can_desegment = pinfo.can_desegment + 1 -- a call takes one away
    end
    return handle:call(tvb, pinfo, tree)
end

zondar.prefs.port = Pref.range("TCP ports", "8001", "The ports that modules listen on", 65535)

-- Whose the ports of the preference were before.
local owners = {}

local function set_ports(text)
    local wanted = {}
    for first, last in text:gmatch("(%d+)%-?(%d*)") do
        for port = tonumber(first), tonumber(last) or tonumber(first) do
            wanted[port] = true
        end
    end
    for port, owner in pairs(owners) do
        if not wanted[port] then
            local owner_now = tcp_ports:get_dissector(port)
            if owner_now and tostring(owner_now) == zondar_at_port.name then
                tcp_ports:remove(port, zondar_at_port)
                if owner then
                    tcp_ports:add(port, owner)
                end
            end
            owners[port] = nil
        end
    end
    for port in pairs(wanted) do
        if owners[port] == nil then
            local owner_now = tcp_ports:get_dissector(port)
            owners[port] = owner_now or false
            if not is_ours(owner_now) then
                tcp_ports:add(port, zondar_at_port)
            end
        end
    end
end

function zondar.prefs_changed()
    known_ports = {}
    set_ports(zondar.prefs.port)
end

function zondar.init()
    forget_everything()
    known_ports, present = {}, nil
    traced, direction_of_requests = new_connection(module_at("trace file")), nil
end

handle = Dissector.get("zondar")
tcp_ports:add_for_decode_as(zondar)
set_ports("8001")
