"""A plausible past of a fleet, for promtool to make blocks of: what the exporter would have told."""

import copy

from fake_exporter import metrics, sample


def labelled(line, labels):
    name, value = line.rsplit(" ", 1)
    inside = ",".join(f"{label}={part}" for label, part in labels)
    if name.endswith("}"):
        return f"{name[:-1]},{inside}}}", value
    return f"{name}{{{inside}}}", value


def write(path, targets, modules, begin, end, interval, at):
    """at(instance, module, time) changes a copy of the module to what it was then; None: not asked."""
    families = {}
    for instance, labels in targets:
        for job, collect, every in (("zondar", "status", interval),
                                    ("zondar-configuration", "configuration", 6 * interval)):
            of_target = [(name, sample("", 1, x=value)[3:-3]) for name, value in
                         {"job": job, "instance": instance, **labels}.items()]
            for time in range(begin, end, every):
                module = at(instance, copy.deepcopy(modules[instance]), time)
                lines = [sample("up", int(module is not None))]
                for line in lines + (metrics(module, collect) if module else []):
                    series, value = labelled(line, of_target)
                    families.setdefault(series.split("{")[0], []).append(f"{series} {value} {time}")
    with open(path, "w", encoding="utf-8") as file:
        for name, lines in sorted(families.items()):
            file.write(f"# TYPE {name} gauge\n" if not name.endswith("_info")
                       else f"# TYPE {name} unknown\n")
            file.writelines(line + "\n" for line in lines)
        file.write("# EOF\n")
