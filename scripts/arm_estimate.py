#!/usr/bin/env python3
"""Cycle estimates of the kernel driver (bench/arm/arm_kernels.cpp) for one
ARM target, from the blocks of code it executes under qemu-user and llvm-mca's
timing of each block. Called by scripts/arm-estimate.sh, whose header states
the method and its caveats.

  arm_estimate.py profile --binary B --qemu Q --triple T --models M1,M2,...
                  [--kernels K1,K2,...] --out FILE.json

For every kernel of `B list`: runs it under `Q -d exec,nochain,in_asm` and
counts, between the entries of arm_estimate_begin and arm_estimate_end, how
often each translation block (a straight run of instructions ending at a
branch) starts; takes each block's instructions from llvm-objdump of B; times
every block with llvm-mca for each model (cycles per iteration of the block
repeated); and writes per kernel the executed instructions and the estimated
cycles per call (sum over blocks of count x cycles per iteration).
"""
import argparse
import json
import os
import re
import subprocess
import sys
from collections import Counter, defaultdict


def run(cmd, **kw):
    return subprocess.run(cmd, check=True, stdout=subprocess.PIPE, text=True, **kw).stdout


def marker_addresses(binary):
    out = run(["nm", binary])
    addr = {}
    for line in out.splitlines():
        f = line.split()
        if len(f) == 3 and f[2] in ("arm_estimate_begin", "arm_estimate_end"):
            addr[f[2]] = int(f[0], 16) & ~1  # Thumb symbols carry bit 0
    return addr["arm_estimate_begin"], addr["arm_estimate_end"]


TRACE = re.compile(r"^Trace \d+: 0x[0-9a-f]+ \[[0-9a-f]+/([0-9a-f]+)/")
INSN = re.compile(r"^0x([0-9a-f]+):")


def profile_kernel(qemu, binary, name, calls, begin, end):
    """Block start -> executions between the markers; block start -> the
    addresses of its instructions (from the translation log)."""
    rfd, wfd = os.pipe()
    proc = subprocess.Popen(
        [qemu, "-d", "exec,nochain,in_asm", "-D", f"/dev/fd/{wfd}", binary, name, str(calls)],
        pass_fds=(wfd,), stdout=subprocess.PIPE, text=True)
    os.close(wfd)
    counts = Counter()
    blocks = {}
    counting = False
    current = None
    with os.fdopen(rfd, "r", errors="replace") as log:
        for line in log:
            m = TRACE.match(line)
            if m:
                current = None
                pc = int(m.group(1), 16)
                if pc == begin:
                    counting = True
                elif pc == end:
                    counting = False
                elif counting:
                    counts[pc] += 1
                continue
            if line.startswith("IN:"):
                current = []
                continue
            if current is not None:
                m = INSN.match(line)
                if m:
                    a = int(m.group(1), 16)
                    if not current:
                        blocks.setdefault(a, current)
                    current.append(a)
                elif not line.strip():
                    current = None
    checksum = proc.stdout.read().strip()
    if proc.wait() != 0:
        sys.exit(f"arm_estimate: {name} failed under qemu")
    return counts, blocks, checksum


def disassembly(binary, triple):
    out = run(["llvm-objdump", "-d", "--no-show-raw-insn", f"--triple={triple}", binary])
    text = {}
    line_re = re.compile(r"^\s*([0-9a-f]+):\s+(\S.*)$")
    for line in out.splitlines():
        m = line_re.match(line)
        if m:
            text[int(m.group(1), 16)] = m.group(2)
    return text


TARGET = re.compile(r"(0x)?[0-9a-f]+ <[^>]*>")


CALL = re.compile(r"^(bl|blx|blr)(\s)")


def clean(insn, aarch64):
    """An objdump line as assembler input: branch and literal targets become
    one label, comments go, and a call becomes a plain branch (llvm-mca
    charges a call 100 cycles of latency; the callee's own blocks are
    counted where they run)."""
    insn = TARGET.sub("target", insn)
    insn = insn.split("//")[0] if aarch64 else insn.split("@")[0]
    insn = insn.strip().replace("\t", " ")
    m = CALL.match(insn)
    if m:
        insn = {"bl": "b", "blx": "bx", "blr": "br"}[m.group(1)] + insn[len(m.group(1)):]
        if insn.startswith("bx target"):
            insn = "b target"
    return insn


COND = "eq|ne|cs|hs|cc|lo|mi|pl|vs|vc|hi|ls|ge|lt|gt|le|al"


def strip_it_blocks(body, lines, replaced):
    for i, line in enumerate(body):
        m = re.match(r"^it([te]{0,3}) (\w+)$", line)
        if not m:
            continue
        body[i] = "mov r12, #0"
        replaced[lines[i + 1][0]] += 1
        for j in range(i + 1, min(i + 2 + len(m.group(1)), len(body))):
            mn, _, rest = body[j].partition(" ")
            c = re.match(rf"^([a-z]+?)({COND})(\.[wn])?$", mn)
            if c:
                body[j] = c.group(1) + (c.group(3) or "") + " " + rest


# NEON code on 32-bit ARM: the in-order models of the bracket (cortex-m7,
# cortex-r52) have no NEON, so blocks with NEON instructions are timed by the
# nearest models that have it: cortex-a57 at the optimistic end and
# cortex-a9 with NEON (an in-order NEON unit with long result latencies) at
# the pessimistic end.
NEON_STAND_IN = {"cortex-m7": ("cortex-a57", ""), "cortex-r52": ("cortex-a9", "+neon")}
NEON_INSN = re.compile(r"^v\S*\.(?:[isup]?(?:8|16|32|64))\b|^v(?:ld|st)[1-4]|\bq\d+\b|\bd(?:1[6-9]|2\d|3[01])\b")


def is_neon_block(insns):
    return any(i.startswith("v") and NEON_INSN.search(i) for i in insns)


def mca_cycles_split(regions, triple, cpu, aarch64):
    """mca_cycles, with the NEON blocks of a 32-bit bracket model timed by its
    stand-in (NEON_STAND_IN)."""
    if aarch64 or cpu not in NEON_STAND_IN:
        return mca_cycles(regions, triple, cpu, aarch64)
    neon = {k: v for k, v in regions.items() if is_neon_block(v)}
    plain = {k: v for k, v in regions.items() if k not in neon}
    cycles, replaced = mca_cycles(plain, triple, cpu, aarch64) if plain else ({}, Counter())
    if neon:
        stand_in, mattr = NEON_STAND_IN[cpu]
        c2, r2 = mca_cycles(neon, triple, stand_in, aarch64, mattr)
        cycles.update(c2)
        replaced.update(r2)
    return cycles, replaced


def same_insn(a, b):
    """The same instruction as printed by objdump and by llvm-mca (spacing,
    and a .w/.n width the one prints and the other may not)."""
    def norm(x):
        return " ".join(re.sub(r"^(\S+?)\.[wn](?=\s)", r"\1", x.strip()).replace(",", ", ").split())
    return norm(a) == norm(b)


def mca_cycles(regions, triple, cpu, aarch64, mattr=""):
    """regions: {key: [instruction text]} -> {key: cycles per iteration}."""
    keys = list(regions)
    lines = {}
    body = []
    for k in keys:
        body.append(f"# LLVM-MCA-BEGIN r{k:x}")
        for insn in regions[k]:
            body.append(insn)
            lines[len(body)] = (k, len(regions[k]))
        body.append(f"# LLVM-MCA-END r{k:x}")
    body.append("target:")
    replaced = Counter()
    # Every round fixes at least one line (or gives up below), and a line is
    # fixed at most twice (width dropped, then replaced): this bound is never
    # the one that stops a run that can still make progress.
    for _ in range(2 * len(body) + 2):
        src = "\n".join(body) + "\n"
        p = subprocess.run(["llvm-mca", f"-mtriple={triple}", f"-mcpu={cpu}", "-iterations=100",
                            "-all-views=false", "-summary-view=true"] + ([f"-mattr={mattr}"] if mattr else []),
                           input=src, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        errors = re.findall(r"<stdin>:(\d+):\d+: error", p.stderr)
        if p.returncode == 0 and not errors:
            break
        # Lines the assembler rejects (rare forms objdump prints differently)
        # become a plain one-cycle instruction; counted and reported.
        bad = {int(n) for n in errors}
        # An instruction the model has no timing for (e.g. a barrier):
        # every copy of it becomes the filler too.
        m = re.search(r"error: [^\n]*\n[^\n]*instruction:\s*([^\n]*)", p.stderr)
        if m:
            unsupported = " ".join(m.group(1).split())
            if unsupported.split()[0].startswith("it") and not aarch64:
                # Models without the Thumb IT instruction (cortex-m7): each
                # IT becomes the filler and the instructions it predicates
                # lose their condition (they issue either way).
                strip_it_blocks(body, lines, replaced)
                continue
            bad |= {i + 1 for i, l in enumerate(body) if same_insn(l, unsupported)}
        if not bad:
            sys.exit(f"arm_estimate: llvm-mca failed for {cpu}:\n{p.stderr[-2000:]}")
        for n in bad:
            if re.match(r"^\S+\.[wn] ", body[n - 1]):
                # objdump writes a width the assembler refuses on some forms
                # (writeback loads): the same instruction without it.
                body[n - 1] = re.sub(r"^(\S+)\.[wn] ", r"\1 ", body[n - 1])
                continue
            body[n - 1] = "mov x16, #0" if aarch64 else "mov r12, #0"
            replaced[lines[n][0]] += 1
    else:
        sys.exit(f"arm_estimate: llvm-mca kept failing for {cpu}")
    cycles = {}
    name = None
    iters = None
    for line in p.stdout.splitlines():
        m = re.match(r"\[\d+\] Code Region - r([0-9a-f]+)", line)
        if m:
            name = int(m.group(1), 16)
            continue
        m = re.match(r"Iterations:\s+(\d+)", line)
        if m:
            iters = int(m.group(1))
            continue
        m = re.match(r"Total Cycles:\s+(\d+)", line)
        if m and name is not None:
            cycles[name] = int(m.group(1)) / iters
    missing = [k for k in keys if k not in cycles]
    if missing:
        sys.exit(f"arm_estimate: llvm-mca gave no figure for {len(missing)} blocks ({cpu})")
    return cycles, replaced


CLOCK_MHZ = 1800.0


def report(armhf_json, arm64_json, a55_32_models):
    """The table: speaker figures as MHz of an A55 at 1.8 GHz and times real
    time, resampler stages as the published C's cycles over ours."""
    d32 = json.load(open(armhf_json))
    d64 = json.load(open(arm64_json))
    lo, hi = a55_32_models

    def a55_32(name):
        # The middle (geometric mean) of the two in-order models that
        # bracket the A55 on 32-bit code.
        k32 = d32[name]["cycles"]
        return (k32[lo] * k32[hi]) ** 0.5

    def fillers(d, name):
        return max(d[name]["fillers"].values())

    def mhz(cycles, name, d):
        return cycles / d[name]["seconds"] / 1e6

    def rt(m):
        return f"{m:6.1f} MHz {CLOCK_MHZ / m:6.1f}x"

    print(f"\nSpeaker, 48 kHz stereo: MHz of one core and times real time at {CLOCK_MHZ / 1000:.1f} GHz")
    print(f"{'figure':34} {'isa':7} {'A55 estimate':>20} {'32-bit bracket (A55)':>26} {'big core (A57)':>20}"
          f" {'instr/s':>8} {'target':>8}")
    rows = [("front end, every block on", "speaker/front_end_all_on"),
            ("front end, every block off", "speaker/front_end_all_off"),
            ("ten-band stereo equalizer alone", "speaker/parametric_eq_10_bands")]
    for isa, d in (("armv7", d32), ("aarch64", d64)):
        target = 100 if isa == "armv7" else 150
        def cyc(name, model):
            if model == "a55":
                return a55_32(name) if isa == "armv7" else d[name]["cycles"]["cortex-a55"]
            return d[name]["cycles"][model]
        figs = []
        if any(name not in d or name not in d32 for _, name in rows):
            print(f"{'(not all speaker kernels were run)':34} {isa:7}")
            continue
        for label, name in rows:
            figs.append((label, {m: mhz(cyc(name, m), name, d) for m in ("a55", "cortex-a57", lo, hi)
                                 if m == "a55" or m in d[name]["cycles"]},
                         d[name]["insns"] / d[name]["seconds"] / 1e6, False))
        on, off = figs[0][1], figs[1][1]
        figs.insert(0, ("speaker kernels (on minus off)", {m: on[m] - off[m] for m in on},
                        figs[0][2] - figs[1][2], True))
        for label, m, mips, judged in figs:
            br = f"{CLOCK_MHZ / m[lo]:6.1f}x .. {CLOCK_MHZ / m[hi]:6.1f}x" if isa == "armv7" else "-"
            verdict = ""
            if judged:
                verdict = f">= {target}x " + ("met" if CLOCK_MHZ / m["a55"] >= target else "NOT MET")
            print(f"{label:34} {isa:7} {rt(m['a55']):>20} {br:>26} {rt(m['cortex-a57']):>20} {mips:7.0f}M {verdict}")

    print("\nResampler stages, 480 input samples per call: cycles per call on the A55 estimate, and the")
    print("published C's cycles over ours (>= 1.00: ours is no slower)")
    print(f"{'stage':24} {'isa':7} {'ours':>8} {'C':>8} {'C/ours A55':>11} {'32-bit bracket':>16}"
          f" {'C/ours A57':>11} {'target':>14}")
    stages = [k[5:] for k in d32 if k.startswith("kafx/") and "webrtc/" + k[5:] in d32]
    worst = {}
    for isa, d in (("armv7", d32), ("aarch64", d64)):
        for st in stages:
            ours, ref = "kafx/" + st, "webrtc/" + st
            if ours not in d or ref not in d:
                continue
            if d[ours]["checksum"] != d[ref]["checksum"]:
                print(f"{st:24} {isa:7} OUTPUTS DIFFER from the published C")
                continue
            if isa == "armv7":
                a, b = a55_32(ours), a55_32(ref)
                br = (f"{d[ref]['cycles'][lo] / d[ours]['cycles'][lo]:.2f} .. "
                      f"{d[ref]['cycles'][hi] / d[ours]['cycles'][hi]:.2f}")
            else:
                a, b = d[ours]["cycles"]["cortex-a55"], d[ref]["cycles"]["cortex-a55"]
                br = "-"
            big = d[ref]["cycles"]["cortex-a57"] / d[ours]["cycles"]["cortex-a57"]
            ok = b / a >= 1.0
            print(f"{st:24} {isa:7} {a:8.0f} {b:8.0f} {b / a:11.2f} {br:>16} {big:11.2f}"
                  f" {'>= 1.00 ' + ('met' if ok else 'NOT MET'):>14}")
    most = max(max(fillers(d, k) for k in d if not k.startswith("_")) for d in (d32, d64))
    print(f"\nInstructions a model could not time (counted as one simple instruction): at most "
          f"{100 * most:.2f}% of any figure's executed instructions.")


def main():
    if len(sys.argv) > 1 and sys.argv[1] == "report":
        report(sys.argv[2], sys.argv[3], sys.argv[4].split(","))
        return
    ap = argparse.ArgumentParser()
    ap.add_argument("mode", choices=["profile"])
    ap.add_argument("--binary", required=True)
    ap.add_argument("--qemu", required=True)
    ap.add_argument("--triple", required=True)
    ap.add_argument("--models", required=True)
    ap.add_argument("--kernels", default="")
    ap.add_argument("--out", required=True)
    ap.add_argument("--details", default="")
    a = ap.parse_args()
    aarch64 = a.triple.startswith("aarch64")
    begin, end = marker_addresses(a.binary)
    kernels = [l.split() for l in run([a.qemu, a.binary, "list"]).splitlines()]
    if a.kernels:
        wanted = set(a.kernels.split(","))
        kernels = [k for k in kernels if k[0] in wanted]
    text = disassembly(a.binary, a.triple)
    profiles = {}
    all_blocks = {}
    for name, group, seconds, calls in kernels:
        counts, blocks, checksum = profile_kernel(a.qemu, a.binary, name, int(calls), begin, end)
        all_blocks.update(blocks)
        profiles[name] = dict(group=group, seconds=float(seconds), calls=int(calls), counts=counts,
                              checksum=checksum.split()[-1] if checksum else "")
        print(f"  {name}: {sum(counts.values())} blocks run", file=sys.stderr)
    used = set()
    for p in profiles.values():
        used.update(p["counts"])
    regions = {}
    for pc in used:
        insns = all_blocks.get(pc)
        if insns is None:
            sys.exit(f"arm_estimate: block {pc:#x} ran but was never listed")
        regions[pc] = [clean(text[x], aarch64) if x in text else "nop" for x in insns]
    result = {}
    details = []
    per_model = {}
    for cpu in a.models.split(","):
        per_model[cpu] = mca_cycles_split(regions, a.triple, cpu, aarch64)
    for name, p in profiles.items():
        calls = p["calls"]
        insns = sum(n * len(all_blocks[pc]) for pc, n in p["counts"].items()) / calls
        cycles = {cpu: sum(n * c[0][pc] for pc, n in p["counts"].items()) / calls
                  for cpu, c in per_model.items()}
        # Share of the executed instructions that a model could not time
        # (each counted as a one-cycle filler).
        fillers = {cpu: sum(n * c[1][pc] for pc, n in p["counts"].items()) / calls / insns
                   for cpu, c in per_model.items()}
        result[name] = dict(group=p["group"], seconds=p["seconds"], calls=calls, insns=insns,
                            cycles=cycles, fillers=fillers, checksum=p["checksum"])
        # The blocks that take most of the first model's cycles, for reading.
        first = next(iter(per_model.values()))[0]
        top = sorted(p["counts"].items(), key=lambda kv: -kv[1] * first[kv[0]])[:8]
        details.append(f"== {name}: {insns:.0f} instructions per call")
        for pc, n in top:
            times = " ".join(f"{cpu} {c[0][pc]:.2f}" for cpu, c in per_model.items())
            details.append(f"-- block {pc:#x}: {n / calls:.1f} runs per call, cycles per run: {times}")
            details.extend("     " + x for x in regions[pc])
    if a.details:
        with open(a.details, "w") as f:
            f.write("\n".join(details) + "\n")
    with open(a.out, "w") as f:
        json.dump(result, f, indent=1)


if __name__ == "__main__":
    main()
