"""A Prometheus that asks an exporter and serves the pages, with a past if one is given."""

import contextlib
import json
import pathlib
import socket
import subprocess
import tempfile
import time
import urllib.parse
import urllib.request

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = ROOT / "build/pages"


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


def wait_until(what, seconds=120):
    """The first true value of what(); the end of patience is a failure, not a measure."""
    end = time.monotonic() + seconds
    while not (value := what()):
        if time.monotonic() > end:
            raise AssertionError(f"not within {seconds} s: {what}")
        time.sleep(0.1)
    return value


class Prometheus:
    def __init__(self, exporter, targets, interval="2s", prefix="/", past=""):
        """targets: (instance, labels); past: a file of OpenMetrics that it has kept already."""
        self.folder = tempfile.TemporaryDirectory()
        folder = pathlib.Path(self.folder.name)
        self.targets = folder / "targets.json"
        self.set_targets(targets)
        relabel = [{"source_labels": ["__address__"], "target_label": "__param_target"},
                   {"source_labels": ["__param_target"], "target_label": "instance"},
                   {"target_label": "__address__", "replacement": exporter}]
        jobs = [{"job_name": name, "metrics_path": "/probe", "params": {"collect": [collect]},
                 "file_sd_configs": [{"files": [str(self.targets)]}], "relabel_configs": relabel}
                for name, collect in (("zondar", "status"), ("zondar-configuration", "configuration"))]
        jobs.append({"job_name": "zondar-exporter", "static_configs": [{"targets": [exporter]}]})
        configuration = {"global": {"scrape_interval": interval, "scrape_timeout": interval},
                         "scrape_configs": jobs}
        # JSON is YAML, too.
        (folder / "prometheus.json").write_text(json.dumps(configuration))
        data = folder / "data"
        if past:
            subprocess.run(["promtool", "tsdb", "create-blocks-from", "openmetrics", past, data],
                           check=True, stdout=subprocess.DEVNULL)
        port = free_port()
        self.url = f"http://127.0.0.1:{port}{prefix}"
        self.log = open(folder / "log", "w+", encoding="utf-8")
        self.process = subprocess.Popen(
            ["prometheus", f"--config.file={folder}/prometheus.json", f"--storage.tsdb.path={data}",
             f"--web.listen-address=127.0.0.1:{port}", f"--web.external-url={self.url}",
             "--storage.tsdb.retention.time=60d",
             f"--web.console.templates={PAGES}/consoles",
             f"--web.console.libraries={PAGES}/console_libraries"],
            stdout=self.log, stderr=subprocess.STDOUT)
        wait_until(self.is_ready)

    def is_ready(self):
        with contextlib.suppress(OSError):
            return urllib.request.urlopen(self.url + "-/ready").status == 200
        return False

    def set_targets(self, targets):
        new = self.targets.with_suffix(".new")
        new.write_text(json.dumps([{"targets": [instance], "labels": labels}
                                   for instance, labels in targets]))
        new.rename(self.targets)

    def ask(self, expression):
        url = self.url + "api/v1/query?" + urllib.parse.urlencode({"query": expression})
        return json.load(urllib.request.urlopen(url))["data"]["result"]

    def number(self, expression):
        """The value of an expression that has one, 0 when it has none."""
        return sum(float(series["value"][1]) for series in self.ask(expression))

    def wait_for(self, expression, value):
        wait_until(lambda: self.number(expression) == value)

    def close(self):
        self.process.terminate()
        self.process.wait()
        self.log.close()
        self.folder.cleanup()
