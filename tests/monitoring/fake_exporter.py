"""An exporter for the tests of the pages: answers as the real one does, for modules whose states the
test changes while it runs."""

import http.server
import sys
import threading
import urllib.parse
from dataclasses import dataclass, field

STAGES = ["resolve", "lock", "connect", "resync", "answer", "code", "sequence", "command", "refused"]
ALARMS = ["alarma_hw", "alarma_in", "alarma_cod", "alarma_si", "alarma_mod", "alarma_ip"]


@dataclass
class Module:
    stage: str = ""  # at which probes fail; none when they do not
    alarms: set = field(default_factory=set)
    output_sync: int = 1
    net_bitrate: int = 19906
    ip_bitrates: tuple = (0, 0)
    seconds: float = 0.012
    resynchronised: int = 0
    identity: dict = field(default_factory=dict)
    parameters: dict = field(default_factory=lambda: {
        "RFOut.Canal_Salida": 21, "RFOut.Frecuencia": 474000, "IPOut.Ip_Off": 1,
        "ServiciosSalida.0.Nombre": "Canal Uno"})


def text(value):
    return '"' + value.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n") + '"'


def sample(name, value, /, **labels):
    inside = ",".join(f"{label}={text(str(of))}" for label, of in labels.items())
    return f"{name}{{{inside}}} {value}" if inside else f"{name} {value}"


def metrics(module, collect):
    """The samples of one probe, without their time."""
    lines = [sample("zondar_probe_failed", int(stage == module.stage), stage=stage) for stage in STAGES]
    lines.append(sample("zondar_probe_duration_seconds", module.seconds))
    lines.append(sample("zondar_probe_step_duration_seconds", module.seconds / 4, step="open"))
    lines.append(sample("zondar_probe_exchanges", 2))
    lines.append(sample("zondar_probe_resynchronised", module.resynchronised))
    if module.stage != "lock":
        lines.append(sample("zondar_up", int(not module.stage)))
    if module.stage:
        return lines
    if collect == "configuration":
        lines.append(sample("zondar_probe_step_duration_seconds", module.seconds / 2, step=collect))
        for name, value in module.parameters.items():
            if isinstance(value, str):
                lines.append(sample("zondar_parameter_info", 1, parameter=name, value=value))
            else:
                lines.append(sample("zondar_parameter", value, parameter=name))
        checksum = sum(repr(item).encode()[i] * (i + 1) for item in module.parameters.items()
                       for i in range(len(repr(item).encode())))
        return lines + [sample("zondar_configuration_checksum", checksum)]
    lines.append(sample("zondar_probe_step_duration_seconds", module.seconds / 2, step="status"))
    lines.append(sample("zondar_probe_step_duration_seconds", module.seconds / 4, step="identification"))
    lines += [sample("zondar_alarm", int(alarm in module.alarms), alarm=alarm) for alarm in ALARMS]
    lines.append(sample("zondar_input_sync", 3))
    lines.append(sample("zondar_output_sync", module.output_sync))
    for name in ("zondar_tv_system", "zondar_hdmi", "zondar_hdsdi"):
        lines += [sample(name, 1, input=number) for number in (1, 2)]
    lines += [sample("zondar_null_level", -3), sample("zondar_player", 0)]
    lines.append(sample("zondar_multiplex_net_bitrate", module.net_bitrate))
    lines += [sample("zondar_ip_bitrate", rate, stream=stream)
              for stream, rate in enumerate(module.ip_bitrates)]
    lines.append(sample("zondar_ip_bitrate_all", sum(module.ip_bitrates)))
    identity = {"model": "ZM2", "software": "2.4", "device_name": "cabecera", "boot_loader": "1.2",
                "hardware": "3.1", "serial": "000123456789", "mac": "0050C2123456"} | module.identity
    return lines + [sample("zondar_module_info", 1, **identity)]


OWN = """zondar_exporter_build_info{version="1.0"} 1
zondar_exporter_targets %d
zondar_exporter_sessions_in_flight 3
zondar_exporter_sessions_limit 512
zondar_exporter_probes_total{result="ok"} 1
zondar_exporter_failures_total{stage="connect"} 0
process_cpu_seconds_total 1
process_resident_memory_bytes 12000000
process_open_fds 20
process_max_fds 1024
zondar_exporter_joined_probes_total 0
zondar_exporter_resynchronisations_total 0
zondar_exporter_session_duration_seconds_bucket{le="0.1"} 10
zondar_exporter_session_duration_seconds_bucket{le="+Inf"} 10
zondar_exporter_session_duration_seconds_sum 0.1
zondar_exporter_session_duration_seconds_count 10
"""


class FakeExporter(http.server.ThreadingHTTPServer):
    """Listens on the loopback from its making until close()."""

    request_queue_size = 1000
    daemon_threads = True

    def __init__(self, modules):
        super().__init__(("127.0.0.1", 0), Handler)
        self.modules = modules  # by "HOST:PORT"; a module that is not there is answered by 403
        self.address = f"127.0.0.1:{self.server_address[1]}"
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def handle_error(self, request, client_address):
        """A Prometheus that ends leaves connections behind; nothing else is expected."""
        if not isinstance(sys.exception(), ConnectionError):
            super().handle_error(request, client_address)

    def close(self):
        self.shutdown()
        self.server_close()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    disable_nagle_algorithm = True

    def do_GET(self):
        url = urllib.parse.urlsplit(self.path)
        asked = dict(urllib.parse.parse_qsl(url.query))
        module = self.server.modules.get(asked.get("target"))
        status = 200
        if url.path == "/metrics":
            body = OWN % len(self.server.modules)
        elif url.path == "/probe" and module:
            body = "\n".join(metrics(module, asked.get("collect", "status"))) + "\n"
        else:
            status, body = 403, "not a target\n"
        content = body.encode()
        self.send_response(status)
        self.send_header("Content-Type", "text/plain; version=0.0.4; charset=utf-8")
        self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        self.wfile.write(content)

    def log_message(self, *_):
        pass
