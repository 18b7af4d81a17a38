#!/usr/bin/env python3
"""Compares the curves' arithmetic with exact fractions, bit by bit.  Arguments: program and project, or --curves."""
import math, os, random, shutil, struct, subprocess, sys, tempfile
from fractions import Fraction

LOW, HIGH = -2**31, 2**31 - 1


def single(value):
    try:
        return struct.unpack("<f", struct.pack("<f", value))[0]
    except OverflowError:
        return math.copysign(math.inf, value)


def bits(value):
    return struct.unpack("<I", struct.pack("<f", single(value)))[0]


def evaluate(words, argument, powers):
    x, total = single(argument), 0.0
    for k in range(11):
        coefficient = struct.unpack("<f", struct.pack("<I", words[k]))[0]
        powers[(x, k)] = power = float(Fraction(x) ** k)  # a fraction is exact: rounded once, to the nearest
        if math.isfinite(coefficient) and math.isfinite(total):
            total = single(float(Fraction(coefficient) * Fraction(power) + Fraction(total)))
        else:
            total = coefficient * power + total  # infinite or NaN
    return total


def cut(value):
    return 0 if math.isnan(value) else int(min(max(value, LOW), HIGH))


def expected(words, argument, powers):
    value = evaluate(words, argument, powers)
    shown = 0x7FC00000 if math.isnan(value) else bits(value)
    position = cut(evaluate(words, argument % 2**32, powers))
    return f"{shown:08x} {cut(value)} {position} {max(cut(single(value / 100)), LOW + 273) - 273}"


def draw(dice):
    """A random curve: as of a lens, with terms of one size, any bits, any numbers, or two terms that cancel."""
    kind = dice.randrange(5)
    argument = dice.choice([0, dice.randint(-60, 60), dice.randint(-1000, 5000), dice.randint(LOW, HIGH)])
    if kind == 2:
        return [dice.getrandbits(32) for _ in range(12)], argument
    sizes = {0: lambda k: 10.0 ** (3 - 3 * k), 1: lambda k: 10.0**6 / max(abs(argument), 1) ** k,
             3: lambda k: 10.0 ** dice.uniform(-44, 38), 4: lambda k: 1000.0 * (k == 0)}
    words = [bits(dice.uniform(-1, 1) * sizes[kind](k)) for k in range(12)]
    if kind == 4:
        k, c0, x = dice.randint(3, 10), struct.unpack("<f", struct.pack("<I", words[0]))[0], single(argument) or 1.0
        if abs(Fraction(x) ** k - Fraction(float(Fraction(x) ** k))) > Fraction(math.ulp(x**k)) * 9 / 20:
            return draw(dice)  # so near to a tie pow may be off by one bit, and this sum would show it
        words[k] = bits(-c0 / x**k)
    return words, argument


def programs(given, project, folder):
    yield "as built", [given]
    for compiler, runner in (("g++", []), ("clang++", []), ("arm-linux-gnueabihf-g++", ["qemu-arm"])):
        if not all(map(shutil.which, [compiler, *runner])):
            print(f"{compiler}: not here")
            continue
        for level in ("-O0", "-O2"):
            program, static = os.path.join(folder, compiler + level), ["-static"] * len(runner)
            sources = [f"{project}/src/ics/curve.cpp", f"{project}/tests/curve_bits.cpp"]
            options = ["-std=c++20", level, "-ffp-contract=off", *static, f"-I{project}/src"]
            subprocess.run([compiler, *options, "-o", program, *sources], check=True)
            yield f"{compiler} {level}", [*runner, program]


dice, powers, failed = random.Random(1), {}, False
cases = [draw(dice) for _ in range(6000)]
lines = [" ".join(f"{word:x}" for word in words) + f" {argument}\n" for words, argument in cases]
if sys.argv[1] == "--curves":  # print only the program's input
    sys.exit(print("".join(lines), end=""))
wanted = [expected(words, argument, powers) for words, argument in cases]
off = sum(math.pow(x, k) != power for (x, k), power in powers.items())
print(f"{len(cases)} curves; this C library's pow is off in {off} of {len(powers)} powers")
with tempfile.TemporaryDirectory() as folder:
    for name, command in programs(sys.argv[1], sys.argv[2], folder):
        got = subprocess.check_output(command, input="".join(lines), text=True).split("\n")
        wrong = [i for i, line in enumerate(wanted) if line != got[i]] if len(got) == len(wanted) + 1 else [0]
        print(f"{name}: {len(wrong)} wrong", *(f"\n{lines[i]} gives {got[i]}, not {wanted[i]}" for i in wrong[:3]))
        failed |= bool(wrong)
sys.exit(failed)
