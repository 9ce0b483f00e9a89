#!/usr/bin/env python3
"""Writes the manual pages: one section 3 page per exported function and the
vxutil(7) overview, from the same Doxygen comments the HTML reference uses.

usage: vxu_manpages.py OUTDIR VERSION TEMPLATE_7 INCLUDE_DIR

The headers are read in the order vxutil.h includes them. A function's
family is the "/* ---- Title ----" section of its header (the whole header
when it has none); SEE ALSO lists the rest of the family. Only the Doxygen
commands the headers use are understood; any other stops the build rather
than printing something wrong.
"""
import datetime
import os
import re
import sys

BLOCK_COMMANDS = ("brief", "param", "return", "file", "def")
INLINE_COMMANDS = ("p", "c")
TOKEN = re.compile(
    r"(?P<sec>/\* ---- (?P<title>[^\n]*?) -+(?: \*/|\n(?P<body>(?: \*[^\n]*\n)*?) \*/))"
    r"|(?P<doc>/\*\*.*?\*/)", re.S)


def die(msg):
    sys.exit("vxu_manpages: " + msg)


def escape(text):
    """Backslashes and anything beyond ASCII as groff escapes."""
    text = text.replace("\\", "\\e")
    return "".join(c if ord(c) < 128 else ("\\(mu" if c == "\u00d7" else "\\[u%04X]" % ord(c))
                   for c in text)


def roff(text):
    """Inline Doxygen text to roff: escapes, @p italic, @c and calls bold."""
    text = escape(text)
    for cmd in re.findall(r"@(\w+)", text):
        if cmd not in INLINE_COMMANDS:
            die("unknown inline command @%s in: %s" % (cmd, text))
    text = re.sub(r"@p\s+(\w+)", r"\\fI\1\\fP", text)
    text = re.sub(r"@c\s+(\w+)", r"\\fB\1\\fP", text)
    text = re.sub(r"\b([A-Za-z_]\w*)\(\)", r"\\fB\1\\fP()", text)
    text = re.sub(r"(^|[\s(,;:])-(?=\d)", r"\1\\-", text)
    return "\\&" + text if text[:1] in (".", "'") else text


def plain(text):
    """Inline Doxygen text without markup, for the NAME line."""
    return escape(re.sub(r"@[pc]\s+", "", text))


def parse_doc(block):
    """Splits a /** */ block into brief, paragraphs, params and return."""
    lines = [re.sub(r"^\s*\*? ?", "", l) for l in block[3:-2].split("\n")]
    doc = {"brief": "", "paras": [], "params": [], "return": None, "file": False}
    cur, para = None, []

    def flush():
        if para:
            doc["paras"].append(" ".join(para))
            para.clear()

    for line in lines:
        line = line.strip()
        m = re.match(r"@(\w+)\s*(.*)", line)
        if m and m.group(1) not in INLINE_COMMANDS:
            flush()
            cmd, rest = m.groups()
            if cmd not in BLOCK_COMMANDS:
                die("unknown command @%s" % cmd)
            if cmd == "param":
                name, _, rest = rest.partition(" ")
                doc["params"].append([name, rest.strip()])
                cur = doc["params"][-1]
            elif cmd in ("brief", "return"):
                doc[cmd] = rest
                cur = cmd
            else:
                doc[cmd] = True
                cur = None
        elif not line:
            flush()
            cur = None
        elif cur == "brief" or cur == "return":
            doc[cur] += " " + line
        elif isinstance(cur, list):
            cur[1] += " " + line
        else:
            para.append(line)
    flush()
    return doc


def parse_header(path, name):
    text = open(path, encoding="utf-8").read()
    header = {"name": name, "brief": "", "paras": [], "families": []}
    family = None
    for m in TOKEN.finditer(text):
        if m.group("sec"):
            body = " ".join(re.sub(r"^ \*\s?", "", l).strip()
                            for l in (m.group("body") or "").splitlines()).strip()
            family = {"title": m.group("title").strip(), "note": body, "funcs": []}
            header["families"].append(family)
            continue
        doc = parse_doc(m.group("doc"))
        if doc["file"]:
            header["brief"], header["paras"] = doc["brief"], doc["paras"]
            continue
        rest = text[m.end():].lstrip()
        if not rest.startswith("VXU_API "):
            continue
        decl = " ".join(rest[:rest.index(";")].split())
        decl = re.sub(r"\s*(VXU_PRINTF_FORMAT\(.*?\)|__attribute__\(\(.*\)\))$", "", decl)
        decl = decl[len("VXU_API "):]
        fname = re.match(r"(.*?)\b(\w+)\(", decl).group(2)
        if doc["return"] is None and not re.match(r"void\s+\w", decl):
            die("%s: no @return" % fname)
        if family is None:
            family = {"title": header["brief"].split(":")[0], "note": "", "funcs": []}
            header["families"].append(family)
        family["funcs"].append({"name": fname, "decl": decl, "doc": doc, "header": name})
    return header


def synopsis(decl, fname, params):
    """The prototype in bold with parameter names in italic, wrapped after
    commas to fit an 80-column terminal."""
    head, args = decl.split(fname + "(", 1)
    head += fname + "("
    width, indent = 72, len(head)
    lines, line = [], head
    for part in re.split(r"(?<=,) ", args + ";"):
        if len(line) + len(part) > width and line.strip():
            lines.append(line.rstrip())
            line = " " * indent
        line += part + " "
    lines.append(line.rstrip())
    names = {p for p, _ in params if p != "..."}
    out = []
    for i, l in enumerate(lines):
        start = len(head) if i == 0 else 0
        words = re.split(r"(\w+)", l[start:])
        body = "".join("\\fI%s\\fB" % w if w in names else w for w in words)
        out.append("\\fB" + l[:start] + body + "\\fP")
    return out


def page(func, family, version, date):
    doc, name = func["doc"], func["name"]
    brief = " ".join(doc["brief"].split()).rstrip(".")
    whatis = plain(brief[:1].lower() + brief[1:] if brief[1:2].islower() else brief)
    out = ['.TH %s 3 %s "vxutil %s" "vxutil Library Functions"' % (name.upper(), date, version),
           ".nh", ".ad l", ".SH NAME", "%s \\- %s" % (name, whatis), ".SH LIBRARY", "vxutil library", '.RI ( libvxutil ", " \\-lvxutil )',
           ".SH SYNOPSIS", ".nf", ".B #include <vxutil/%s>" % func["header"], ".PP"]
    out += synopsis(func["decl"], name, doc["params"]) + [".fi", ".SH DESCRIPTION"]
    out.append(roff(" ".join(doc["brief"].split())))
    for p in doc["paras"]:
        out += [".PP", roff(p)]
    if doc["params"]:
        out += [".PP", "Parameters:"]
        for pname, text in doc["params"]:
            out += [".TP", ".I " + pname.replace("...", "\\&..."), roff(" ".join(text.split()))]
    # One line per code: "0 added; -1 registry full; ..." reads as a list.
    codes = re.split(r";\s+(?=-?\d|NULL\b)", " ".join((doc["return"] or "None.").split()))
    out += [".SH RETURN VALUE", "\n.br\n".join(roff(c) for c in codes)]
    if family["note"]:
        out += [".SH NOTES", roff(family["note"])]
    others = [f["name"] for f in family["funcs"] if f["name"] != name]
    out += [".SH SEE ALSO"] + [".BR %s (3)," % o for o in others] + [".BR vxutil (7)"]
    return "\n".join(out) + "\n"


def overview(headers):
    out = []
    for h in headers:
        title, _, rest = h["brief"].partition(":")
        out += [".SS %s: <vxutil/%s>" % (title, h["name"]), roff(rest.strip()[:1].upper() +
                                                                   " ".join(rest.split())[1:])]
        for p in h["paras"]:
            out += [".PP", roff(p)]
        for fam in h["families"]:
            names = [f["name"] for f in fam["funcs"]]
            out += [".TP", ".I %s" % roff(fam["title"])]
            out += [".BR %s (3)%s" % (n, "," if i + 1 < len(names) else "")
                    for i, n in enumerate(names)]
    return "\n".join(out)


def main():
    if len(sys.argv) != 5:
        die("usage: vxu_manpages.py OUTDIR VERSION TEMPLATE_7 INCLUDE_DIR")
    outdir, version, template, incdir = sys.argv[1:]
    epoch = int(os.environ.get("SOURCE_DATE_EPOCH", datetime.datetime.now().timestamp()))
    date = datetime.datetime.fromtimestamp(epoch, datetime.timezone.utc).strftime("%Y-%m-%d")
    umbrella = open(os.path.join(incdir, "vxutil.h"), encoding="utf-8").read()
    names = [n for n in re.findall(r"#include <vxutil/(\w+\.h)>", umbrella) if n != "base.h"]
    headers = [parse_header(os.path.join(incdir, n), n) for n in names]

    man3 = os.path.join(outdir, "man3")
    man7 = os.path.join(outdir, "man7")
    for d in (man3, man7):
        os.makedirs(d, exist_ok=True)
        for old in os.listdir(d):  # a function removed from a header loses its page
            os.remove(os.path.join(d, old))
    count = 0
    for h in headers:
        for fam in h["families"]:
            for func in fam["funcs"]:
                with open(os.path.join(man3, func["name"] + ".3"), "w", encoding="ascii") as f:
                    f.write(page(func, fam, version, date))
                count += 1
    text = open(template, encoding="utf-8").read()
    text = text.replace("@VERSION@", version).replace("@DATE@", date)
    text = text.replace("@SUBSYSTEMS@", overview(headers))
    with open(os.path.join(man7, "vxutil.7"), "w", encoding="ascii") as f:
        f.write(text)
    print("vxu_manpages: %d pages in %s" % (count + 1, outdir))


if __name__ == "__main__":
    main()
