"""What is wrong with a template of Open Job Description, version jobtemplate-2023-09, as far as ours use it."""

import re

NAME = re.compile(r"[A-Za-z_][A-Za-z0-9_]{0,63}$")
RANGE = re.compile(r"-?\d+(--?\d+(:\d+)?)?$")
CONTROL = re.compile(r"[\x00-\x1f\x7f]")
AMOUNTS = {"amount.worker.vcpu", "amount.worker.memory", "amount.worker.gpu", "amount.worker.gpu.memory",
           "amount.worker.disk.scratch"}


class Rules:
    def __init__(self):
        self.faults = []

    def that(self, truth, fault):
        if not truth:
            self.faults.append(fault)
        return truth

    def fields(self, where, thing, needed, optional=()):
        if not self.that(isinstance(thing, dict), f"{where}: no object"):
            return False
        unknown = set(thing) - set(needed) - set(optional)
        lacking = set(needed) - set(thing)
        return self.that(not unknown and not lacking, f"{where}: unknown {unknown}, lacking {lacking}")

    def texts(self, where, text, known):
        for name in re.findall(r"\{\{(.*?)\}\}", text):
            self.that(name.strip() in known, f"{where}: {name} stands for nothing")

    def action(self, where, action, known):
        if not self.fields(where, action, ["command"], ["args", "timeout", "cancelation"]):
            return
        for text in [action["command"], *action.get("args", [])]:
            if self.that(isinstance(text, str), f"{where}: {text!r} is no text"):
                self.texts(where, text, known)
        way = action.get("cancelation", {"mode": "TERMINATE"})
        self.that(way.get("mode") == "TERMINATE" and len(way) == 1
                  or way.get("mode") == "NOTIFY_THEN_TERMINATE" and 1 <= way.get("notifyPeriodInSeconds", 120) <= 600
                  and set(way) <= {"mode", "notifyPeriodInSeconds"}, f"{where}: cancelation {way}")

    def expression(self, where, text):
        last = None
        for part in str(text).split(","):
            if not self.that(RANGE.match(part), f"{where}: range {part!r}"):
                return
            first, _, end = re.match(r"(-?\d+)(-(-?\d+))?", part).groups()
            begin, end = int(first), int(end or first)
            self.that(begin <= end and (last is None or begin > last), f"{where}: {part} does not ascend")
            last = end

    def parameter(self, where, parameter, extensions):
        kind = parameter.get("type")
        chunked = kind == "CHUNK[INT]"
        if not self.fields(where, parameter, ["name", "type", "range"] + (["chunks"] if chunked else [])):
            return
        self.that(NAME.match(parameter["name"]), f"{where}: name")
        values = parameter["range"]
        if kind == "STRING":
            self.that(isinstance(values, list) and 1 <= len(values) <= 1024
                      and all(isinstance(v, str) for v in values), f"{where}: range of texts")
        elif self.that(kind == "INT" or chunked, f"{where}: type {kind}"):
            self.expression(where, values)
        if chunked:
            self.that("TASK_CHUNKING" in extensions, f"{where}: the extension is not asked for")
            chunks = parameter["chunks"]
            self.fields(where, chunks, ["defaultTaskCount", "rangeConstraint"], ["targetRuntimeSeconds"])
            self.that(chunks.get("defaultTaskCount", 0) >= 1 and chunks.get("rangeConstraint") in
                      ("CONTIGUOUS", "NONCONTIGUOUS"), f"{where}: chunks")

    def step(self, step, names, known, extensions):
        if not self.fields("step", step, ["name", "script"], ["dependencies", "hostRequirements", "parameterSpace"]):
            return
        where = step["name"]
        self.that(1 <= len(where) <= 64 and where not in names, f"{where}: name")
        for each in step.get("dependencies", []):
            self.that(set(each) == {"dependsOn"} and each["dependsOn"] in names, f"{where}: depends on {each}")
        amounts = step.get("hostRequirements", {"amounts": []})
        self.that(set(amounts) == {"amounts"} and len(amounts["amounts"]) <= 50, f"{where}: host requirements")
        for each in amounts["amounts"]:
            self.fields(where, each, ["name"], ["min", "max"])
            self.that(each["name"] in AMOUNTS and len(each) > 1 and each.get("min", 1) >= 1, f"{where}: {each}")
        known = set(known)
        space = step.get("parameterSpace")
        if space is not None and self.fields(where, space, ["taskParameterDefinitions"], ["combination"]):
            self.that(1 <= len(space["taskParameterDefinitions"]) <= 16, f"{where}: task parameters")
            for each in space["taskParameterDefinitions"]:
                self.parameter(where, each, extensions)
                known.add("Task.Param." + each["name"])
        if self.fields(where, step["script"], ["actions"], ["embeddedFiles"]):
            self.fields(where, step["script"]["actions"], ["onRun"])
            self.action(where, step["script"]["actions"]["onRun"], known)


def faults(template):
    rules = Rules()
    if not rules.fields("template", template, ["specificationVersion", "name", "steps"],
                        ["description", "parameterDefinitions", "extensions"]):
        return rules.faults
    rules.that(template["specificationVersion"] == "jobtemplate-2023-09", "specificationVersion")
    rules.that(1 <= len(template["name"]) <= 128 and not CONTROL.search(template["name"]), "name")
    extensions = template.get("extensions", [])
    rules.that(set(extensions) <= {"TASK_CHUNKING"}, "extensions")
    known, names = {"Session.WorkingDirectory"}, []
    for each in template.get("parameterDefinitions", []):
        rules.fields("parameter", each, ["name", "type"], ["description", "default", "allowedValues",
                                                            "userInterface", "objectType", "dataFlow"])
        rules.that(NAME.match(each["name"]) and "Param." + each["name"] not in known, "parameter: name")
        rules.that(each["type"] in ("STRING", "PATH", "INT", "FLOAT"), "parameter: type")
        rules.that(each.get("objectType", "FILE") in ("FILE", "DIRECTORY"), "parameter: objectType")
        rules.that(each.get("dataFlow", "IN") in ("NONE", "IN", "OUT", "INOUT"), "parameter: dataFlow")
        known |= {"Param." + each["name"], "RawParam." + each["name"]}
    for step in template["steps"]:
        rules.step(step, names, known, extensions)
        names.append(step.get("name"))
    rules.that(names, "no steps")
    return rules.faults
