#!/usr/bin/env python3
"""Times whole runs of talvex beside their floors and prints a table of ratios.

Every ratio is of two best times, measured in turn in one run: absolute times of a shared machine mean
little. Sizes are chosen so that a report passes 400 MB.
"""

import argparse
import json
import os
import pathlib
import platform
import shutil
import subprocess
import sys
import time

RUNS = 7
WAVES = 2560
VGPRS = 128
REGISTER_BYTES = 32 << 20  # what xxd renders


class Bench:
    def __init__(self, talvex, sample, micro, llvm_objdump, work):
        self.talvex = talvex
        self.sample = sample
        self.micro = micro
        self.work = work
        self.rocm = work / "rocm"
        self.tool_log = work / "tool_runs"
        tool = self.rocm / "llvm/bin/llvm-objdump"
        tool.parent.mkdir(parents=True)
        tool.symlink_to(llvm_objdump)
        self.counting_rocm = work / "counting_rocm"
        counting = self.counting_rocm / "llvm/bin/llvm-objdump"
        counting.parent.mkdir(parents=True)
        counting.write_text(f'#!/bin/sh\necho run >> "{self.tool_log}"\necho listing\n')
        counting.chmod(0o755)

    def make_dump(self, name, *options):
        directory = self.work / name
        subprocess.run([self.sample, "--output", directory, *map(str, options)], check=True,
                       stdout=subprocess.DEVNULL)
        return directory

    def talvex_command(self, dump, tree, rocm=None, *options):
        return [self.talvex, "-i", dump / "core_0", "-m", dump / "mems", "-o", tree,
                "-r", rocm or self.rocm, *options]

    def run_talvex(self, dump, rocm=None, *options):
        """A run into a new tree, which stays for whoever reads it next."""
        tree = self.work / "tree"
        shutil.rmtree(tree, ignore_errors=True)
        return timed(self.talvex_command(dump, tree, rocm, *options))

    def copy_tree(self):
        copy = self.work / "copy"
        shutil.rmtree(copy, ignore_errors=True)
        return timed(["cp", "-r", self.work / "tree", copy])

    def against_copy(self, dump):
        ours, theirs = best_of(lambda: self.run_talvex(dump), self.copy_tree)
        return ours / theirs, f"{megabytes(self.work / 'tree')} MB tree"

    def text_rates(self, dump):
        """Bytes of text a second over those of a hex dump of 32 MiB of registers: made and thrown
        away, and made and written. Copying the tree bounds the second."""
        registers = self.work / "registers"
        registers.write_bytes(os.urandom(REGISTER_BYTES))
        tree = self.work / "tree"
        self.run_talvex(dump)
        text = sum(f.stat().st_size for f in tree.rglob("waves"))
        large = [f.relative_to(tree) for f in tree.rglob("*") if f.name in ("waves", "cwsr")]

        def talvex_thrown_away():
            shutil.rmtree(tree)
            for name in large:
                (tree / name).parent.mkdir(parents=True, exist_ok=True)
                (tree / name).symlink_to("/dev/null")
            return timed(self.talvex_command(dump, tree))

        def xxd(path):
            with open(path, "wb") as out:
                return timed(["xxd", "-g4", "-u", registers], stdout=out)

        ours, theirs = best_of(talvex_thrown_away, lambda: xxd("/dev/null"))
        rendered = self.work / "rendered"
        ours_written, copied, theirs_written = best_of(
            lambda: self.run_talvex(dump), self.copy_tree, lambda: xxd(rendered))
        xxd_text = rendered.stat().st_size

        def ratio(seconds, xxd_seconds):
            return (text / seconds) / (xxd_text / xxd_seconds)

        size = f"{text >> 20} MiB text"
        return (
            ("text per second / xxd -g4 -u, thrown away", ">= 10", (ratio(ours, theirs), size)),
            ("text per second / xxd -g4 -u, written", "",
             (ratio(ours_written, theirs_written),
              f"{size}; as fast as cp -r: {ratio(copied, theirs_written):.2f}")),
        )

    def formatter_rate(self):
        # The fastest of the repetitions of each: the median moves with whatever else the machine does.
        result = subprocess.run(
            [self.micro, "--benchmark_format=json", f"--benchmark_repetitions={RUNS}",
             "--benchmark_filter=BM_WaveRows(SnprintfPerRow)?/128"],
            check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        best = {}
        for row in json.loads(result.stdout)["benchmarks"]:
            if row["run_type"] == "iteration":
                name = row["run_name"]
                best[name] = max(best.get(name, 0), row["bytes_per_second"])
        return best["BM_WaveRows/128"] / best["BM_WaveRowsSnprintfPerRow/128"], "128 VGPRs"

    def anonymous_memory(self, dump):
        """Peak of the anonymous pages in MiB, read while the run lasts."""
        tree = self.work / "tree"
        shutil.rmtree(tree, ignore_errors=True)
        child = subprocess.Popen(self.talvex_command(dump, tree))
        peak = 0
        while child.poll() is None:
            try:
                status = pathlib.Path(f"/proc/{child.pid}/status").read_text()
            except (FileNotFoundError, ProcessLookupError):
                break
            for line in status.splitlines():
                if line.startswith("RssAnon:"):
                    peak = max(peak, int(line.split()[1]))
            time.sleep(0.001)
        child.wait()
        return peak / 1024, "MiB"

    def scaling(self):
        small = self.make_dump("tenth", "--waves", WAVES // 10, "--vgprs", VGPRS,
                               "--faulting", 0)
        large = self.make_dump("whole", "--waves", WAVES, "--vgprs", VGPRS, "--faulting", 0)
        ours, tenth = best_of(lambda: self.run_talvex(large), lambda: self.run_talvex(small))
        return ours / tenth, f"{WAVES // 10} to {WAVES} waves"

    def tool_runs(self, dump):
        self.tool_log.unlink(missing_ok=True)
        self.run_talvex(dump, self.counting_rocm)
        runs = len(self.tool_log.read_text().splitlines())
        tree = self.work / "tree"
        with (tree / "fault_info").open() as report:
            faults = [line for line in report if ": fault wave PC: " in line]
        places = {line.split()[-1] for line in faults}
        listings = len(list((tree / "codes").glob("*.asm")))
        return (f"<= {len(places) + listings}",
                (runs, f"{len(faults)} faulting waves at {len(places)} PCs, {listings} listings"))

    def listings(self, code_objects):
        options = [word for path in code_objects for word in ("--code-object", path)]
        dump = self.make_dump("listings", "--waves", 4, *options)
        self.run_talvex(dump, None, "--dis_all")
        codes = sorted(p for p in (self.work / "tree/codes").iterdir() if not p.suffix)
        script = ('printf "%s\\n" "$@" | xargs -P "$(nproc)" -I{} sh -c '
                  f"'\"{self.rocm}/llvm/bin/llvm-objdump\" --triple=amdgcn-amd-amdhsa --mcpu=gfx906 "
                  "--disassemble --source --line-numbers {} > {}.listing 2>&1'")
        copies = self.work / "codes"
        shutil.copytree(self.work / "tree/codes", copies)
        arguments = [str(copies / code.name) for code in codes]
        ours, theirs = best_of(lambda: self.run_talvex(dump, None, "--dis_all"),
                               lambda: timed(["sh", "-c", script, "sh", *arguments]))
        return ours / theirs, f"{len(codes)} code objects"

    def empty_file(self):
        empty = self.work / "empty"
        empty.mkdir()
        (empty / "core_0").touch()
        command = self.talvex_command(empty, self.work / "tree")
        ours, theirs = best_of(
            lambda: timed(command, stderr=subprocess.DEVNULL, expected=255),
            lambda: timed(["true"]))
        return (ours - theirs) * 1000, "ms more than `true`"


def timed(command, expected=0, **streams):
    begin = time.perf_counter()
    status = subprocess.run([str(word) for word in command], **streams).returncode
    end = time.perf_counter()
    if status != expected:
        sys.exit(f"{command[0]} ended with status {status}, not {expected}")
    return end - begin


def best_of(*ways):
    times = [[way() for way in ways] for _ in range(RUNS)]
    return [min(column) for column in zip(*times)]


def megabytes(tree):
    return sum(f.stat().st_size for f in tree.rglob("*") if f.is_file()) // 1_000_000


def machine():
    """Processor, memory and kernel in one line."""
    processor = next((line.split(":", 1)[1].strip()
                      for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines()
                      if line.startswith("model name")), platform.machine())
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") >> 30
    return f"{os.cpu_count()} x {processor}, {memory} GiB, Linux {platform.release()}"


def file_system(directory):
    command = ["stat", "--file-system", "--format=%T", directory]
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout.strip()


def measure(bench, code_objects):
    # Without faulting waves: a disassembler takes as long as it takes, whoever starts it.
    fault = bench.make_dump("fault", "--waves", WAVES, "--vgprs", VGPRS, "--faulting", 0)
    signal = bench.make_dump("signal", "--reason", "signal", "--waves", WAVES, "--vgprs", VGPRS)
    hang = bench.make_dump("hang", "--waves", WAVES, "--vgprs", VGPRS, "--faulting", WAVES)
    rows = [
        ("VM fault dump / cp -r of its tree", "<= 1.15", bench.against_copy(fault)),
        ("signal dump / cp -r of its tree", "<= 1.15", bench.against_copy(signal)),
        *bench.text_rates(fault),
        ("wave formatter / one snprintf per row", ">= 20", bench.formatter_rate()),
        ("peak of anonymous memory", "<= 16", bench.anonymous_memory(fault)),
        ("time at 10 x the waves / time", "<= 10.5", bench.scaling()),
        ("runs of the disassembler", *bench.tool_runs(hang)),
        ("--dis_all / xargs -P of the same commands", "<= 1.10", bench.listings(code_objects)),
        ("empty core file", "a few ms", bench.empty_file()),
    ]
    print(f"| {'what':<43} | {'must':<12} | {'measured':>8} | of")
    print(f"|{'-' * 45}|{'-' * 14}|{'-' * 10}|---")
    for what, must, (value, of) in rows:
        print(f"| {what:<43} | {must:<12} | {value:8.2f} | {of}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--talvex", type=pathlib.Path, required=True)
    parser.add_argument("--sample", type=pathlib.Path, required=True, help="talvex-sample")
    parser.add_argument("--micro", type=pathlib.Path, required=True, help="talvex_benchmarks")
    parser.add_argument("--llvm-objdump", type=pathlib.Path, required=True)
    parser.add_argument("--kernels", type=pathlib.Path, required=True,
                        help="directory of code objects, each used in turn")
    parser.add_argument("--work", type=pathlib.Path, required=True, action="append",
                        help="a new directory on the file system to measure; may be repeated")
    args = parser.parse_args()

    kernels = sorted(args.kernels.glob("*.co"))
    code_objects = [kernels[i % len(kernels)] for i in range(32)]
    for work in args.work:
        work.mkdir(parents=True)
        try:
            print(f"\n{work} ({file_system(work)}), best of {RUNS}, {machine()}", flush=True)
            measure(Bench(args.talvex.absolute(), args.sample.absolute(), args.micro.absolute(),
                          args.llvm_objdump.absolute(), work.absolute()), code_objects)
        finally:
            shutil.rmtree(work)


if __name__ == "__main__":
    main()
