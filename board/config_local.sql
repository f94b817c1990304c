-- The configuration database of the sample board: a module that encodes two AV inputs into two
-- services on one DVB-T channel of the Spanish plan and on multicast.
--
-- The daemon reads rows by column position, so the order of the columns counts. The keys are
-- compared with quoted numbers, which find a row only where the column has integer affinity.

CREATE TABLE ConfiguracionGen (
    IdConfiguracion             INTEGER PRIMARY KEY,
    Identificacion_Equipo       TEXT,
    Identificacion_Localizacion TEXT,
    Identificacion_Instalador   TEXT,
    Identificacion_Contacto     TEXT,
    Identificacion_Fecha        TEXT,
    Country                     TEXT,
    Time_Offset                 INTEGER,
    Language                    TEXT,
    Idtimezone                  TEXT,
    Codtimezone                 TEXT,
    Subtimezone                 INTEGER,
    Lcd_Bloqueo                 INTEGER,
    Lcd_Codbloqueo              TEXT,
    Modo_Entrada                INTEGER,
    Modo_Salida                 INTEGER,
    Ip_Dhcp                     INTEGER,
    Ip_Address                  TEXT,
    Ip_Mask                     TEXT,
    Ip_Gateway                  TEXT,
    Atenuacion                  INTEGER,
    Player_Mode                 INTEGER,
    EstadoPendienteWR           INTEGER,
    EstadoPendientePTS          INTEGER,
    EstadoPendienteMSS          INTEGER
);
INSERT INTO ConfiguracionGen VALUES (
    1, 'Cabecera 1', 'Sala tecnica', 'Instalaciones Norte', '+34 900 000 000', '2024-02-03',
    'Spain', 60, 'es_ES', 'es', 'ESP', 0,
    0, '1234',
    0, 0,
    0, '192.168.1.50', '255.255.255.0', '192.168.1.1',
    10, 0,
    0, 0, 0
);

CREATE TABLE EntradaAV (
    IdEntradaAV                  INTEGER PRIMARY KEY,
    Saturacion                   INTEGER,
    Brillo                       INTEGER,
    Contraste                    INTEGER,
    Sharpness                    INTEGER,
    Video_Enc_Standard           INTEGER,
    Video_Aspect_Ratio           INTEGER,
    Channel_Mode                 INTEGER,
    Bitrate                      INTEGER,
    Remux_Av                     INTEGER,
    Reset_Ch                     INTEGER,
    Pid_Video_Ch                 INTEGER,
    Pid_Audio_Ch                 INTEGER,
    Pid_Pcr_Ch                   INTEGER,
    Filter_Mode                  INTEGER,
    Audio_Bitrate                INTEGER,
    Audio_Enc_Standard           INTEGER,
    Low_Latency                  INTEGER,
    Profile                      INTEGER,
    Level                        INTEGER,
    Remote_Audio_Sampling_Rate   INTEGER,
    Remote_Needs_Reload_Firmware INTEGER,
    Remote_Sistema_TV            INTEGER,
    Remote_Stop                  INTEGER,
    Remote_Video_Present         INTEGER,
    Remote_Audio_Present         INTEGER,
    Remote_Modo_Salida           INTEGER,
    EstadoPendienteWR            INTEGER,
    EstadoPendienteRE            INTEGER
);
INSERT INTO EntradaAV VALUES
    (0, 50, 51, 52, 3, 1, 1, 0, 8000, 0, 0, 256, 257, 256, 0, 3, 1, 0, 2, 4,
     48000, 0, 33, 0, 1, 1, 0, 0, 0),
    (1, 60, 61, 62, 4, 1, 0, 0, 6500, 0, 0, 512, 513, 512, 1, 4, 1, 1, 1, 3,
     44100, 0, 17, 0, 1, 1, 0, 0, 0);

CREATE TABLE RFOut (
    idRFOut               INTEGER PRIMARY KEY,
    Frecuencia            INTEGER,  -- kHz
    Ancho_Banda           INTEGER,
    Modo_OFDM             INTEGER,
    Intervalo_Guarda      INTEGER,
    Constelacion          INTEGER,
    Code_Rate             INTEGER,
    Espectro_Salida       INTEGER,
    Ventana_OFDM          INTEGER,
    Cell_ID               INTEGER,
    Mpe_FEC               INTEGER,
    Timeslicing           INTEGER,
    Entrelazado           INTEGER,
    Modo_Salida_Modulacion INTEGER,
    Canal_Salida          INTEGER,
    Cofdm_Off             INTEGER,
    Fk_IdSalidasLogicas   INTEGER,
    EstadoPendienteWR     INTEGER,
    EstadoPendientePTS    INTEGER
);
INSERT INTO RFOut VALUES (1, 474000, 0, 1, 0, 3, 4, 0, 0, 0, 0, 0, 0, 0, 21, 0, 1, 0, 0);

CREATE TABLE ServiciosSalida (
    IdServicio           INTEGER PRIMARY KEY,
    Nombre               TEXT,
    Nombre_SAP           TEXT,
    IP_address_source    TEXT,
    IP_port_source       INTEGER,
    IdGrupoSap           TEXT,
    EventName            TEXT,
    EventDescription     TEXT,
    SID                  INTEGER,
    NumEntrada           INTEGER,
    LCN                  INTEGER,
    Bitrate              INTEGER,
    Tipo                 INTEGER,
    Tipo_Audio           INTEGER,
    Seleccionado         INTEGER,
    Seleccionado_ip      INTEGER,
    Encriptado           INTEGER,
    Streammode           INTEGER,
    Protocolo            INTEGER,
    IP_address_dest      TEXT,
    IP_port_dest         INTEGER,
    RTP_packet_length    INTEGER,
    RTP_payload_type     INTEGER,
    RTP_FEC_mode         INTEGER,
    RTP_FEC_filas        INTEGER,
    RTP_FEC_columnas     INTEGER,
    RTP_FEC_payload_type INTEGER,
    EstadoPendienteWR    INTEGER,
    EstadoPendientePTS   INTEGER,
    EstadoPendienteMSS   INTEGER
);
INSERT INTO ServiciosSalida VALUES
    (0, 'Canal Uno', 'SAP Uno', '239.1.1.1', 5000, 'Grupo', 'Directo', 'Senal en directo',
     101, 0, 1, 8200, 1, 1, 1, 1, 0, 0, 1, '239.2.1.1', 5004, 7, 33, 0, 4, 5, 96, 0, 0, 0),
    (1, 'Canal Dos', 'SAP Dos', '239.1.1.2', 5002, 'Grupo', 'Directo', 'Senal en directo',
     102, 1, 2, 6700, 1, 1, 1, 1, 0, 0, 1, '239.2.1.2', 5006, 7, 33, 0, 4, 5, 96, 0, 0, 0);

-- Tipo 1 is the video of a service, 2 its audio; Seleccionado 1 is on, 2 is off.
CREATE TABLE PIDsSalida (
    idPID             INTEGER PRIMARY KEY,
    PID               INTEGER,
    SID               INTEGER,
    Tipo              INTEGER,
    fk_idServicio     INTEGER,
    NumEntrada        INTEGER,
    Bitrate           INTEGER,
    Seleccionado      INTEGER,
    EstadoPendienteWR INTEGER
);
INSERT INTO PIDsSalida VALUES
    (1, 256, 101, 1, 0, 0, 8000, 1, 0),
    (2, 257, 101, 2, 0, 0, 192, 1, 0),
    (3, 512, 102, 1, 1, 1, 6500, 1, 0),
    (4, 513, 102, 2, 1, 1, 192, 1, 0);

CREATE TABLE Red (
    idRed             INTEGER PRIMARY KEY,
    NID               INTEGER,
    NetworkName       TEXT,
    TSID_Out          INTEGER,
    ONID_Out          INTEGER,
    LCN_Mode          INTEGER,
    Insertar_TDT      INTEGER,
    NIT_Patron        INTEGER,
    NIT_File          TEXT,
    Proveedor         TEXT,
    EstadoPendienteWR INTEGER
);
INSERT INTO Red VALUES (1, 1, 'Red Local', 21, 8916, 1, 1, 0, '', 'Proveedor', 0);

CREATE TABLE IPOut (
    IdConfiguracionIPout INTEGER PRIMARY KEY,
    Ip_Off               INTEGER,
    Protocolo            INTEGER,
    Qos                  INTEGER,
    Ttl                  INTEGER,
    Vlan_Mode            INTEGER,
    Vlan_Id              INTEGER,
    Vlan_Tpid            INTEGER,
    Dhcp_Mode            INTEGER,
    IP_Address_Gateway   TEXT,
    Mac                  TEXT,
    Subnet_Mask          TEXT,
    Mpts_Mode            INTEGER,
    IP_Output_Format     INTEGER,
    SAP_Mode             INTEGER,
    SAP_Ip               TEXT,
    SAP_User             TEXT,
    SAP_Time             INTEGER,
    EstadoPendienteWR    INTEGER,
    EstadoPendientePTS   INTEGER,
    EstadoPendienteMSS   INTEGER
);
INSERT INTO IPOut VALUES (
    1, 0, 1, 4, 16, 0, 100, 33024, 0, '192.168.1.1', '00:1a:2b:3c:4d:5f', '255.255.255.0',
    0, 0, 1, '224.2.127.254', 'cabecera', 5, 0, 0, 0
);

-- Empty until a slave module registers.
CREATE TABLE EsclavosModulo (
    IdEsclavosModulo INTEGER PRIMARY KEY,
    MAC              TEXT,
    Hostname         TEXT,
    Serial           TEXT,
    Modelo           TEXT,
    IP               TEXT,
    SWVersion        TEXT,
    Estado           INTEGER,
    Reset_Factory    INTEGER,
    Upgrade          INTEGER,
    Master           INTEGER
);
