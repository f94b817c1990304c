-- The state database of the sample board: what the board's other processes measure and report.
-- A value is text: binary or hexadecimal digits, most significant first, eight at most.

CREATE TABLE alarmasEstado (
    idalarmasEstado   INTEGER PRIMARY KEY,
    nombre            TEXT,
    valor             TEXT,
    EstadoPendienteWR INTEGER,
    EstadoPendienteRE INTEGER
);
INSERT INTO alarmasEstado (nombre, valor, EstadoPendienteWR, EstadoPendienteRE) VALUES
    ('alarma_hw', '0', 0, 0),
    ('alarma_in', '1', 0, 0),
    ('alarma_cod', '0', 0, 0),
    ('alarma_si', '0', 0, 0),
    ('alarma_mod', '0', 0, 0),
    ('alarma_ip', '0', 0, 0),
    ('estado_sync', '1', 0, 0),
    ('estado_entradaAV_sync', '00000101', 0, 0),
    ('estado_entradaAV_sistemaTV_12', '00210022', 0, 0),
    ('estado_entradaAV_hdmi', '01210000', 0, 0),
    ('estado_entradaAV_hdsdi', '00220000', 0, 0),
    ('estado_player', '0', 0, 0),
    ('estado_bitrate_IP_0', '2008', 0, 0),
    ('estado_bitrate_IP_1', '1A2C', 0, 0),
    ('estado_remote_encoder', '00000000', 0, 0);

-- One row of null-packet figures. The daemon reads columns 1 to 5 by position, as numbers.
CREATE TABLE Bitrate_Nulos (
    idBitrate_Nulos TEXT,
    Porcentaje      TEXT,
    Canal_2         TEXT,
    Total           TEXT,
    Canal_1         TEXT,
    Nivel           TEXT,
    Fecha           TEXT
);
INSERT INTO Bitrate_Nulos VALUES ('1', '10', '6500', '20000', '8000', '-5', '2024-02-03 09:05:00');
