"""The innermost loops of the AArch64 library that execute most instructions, and what llvm-mca makes of them."""

import re
from collections.abc import Iterator
from dataclasses import dataclass

from icount_profile import Function, Instruction, Profile, output_of

SIMULATED_ITERATIONS = 200


@dataclass(frozen=True)
class Loop:
    function: Function
    body: list[Instruction]  # what at least half of the iterations execute
    iterations: int
    executed: int  # instructions


def branch_target(instruction: Instruction) -> int | None:
    """The target of a branch within a function; calls and returns have none."""
    match = re.match(r"(b|b\.\w+|cbn?z|tbn?z)\t(?:.*, )?([0-9a-f]+) <", instruction.text)
    return int(match[2], 16) if match else None


def innermost_ranges(profile: Profile, function: Function) -> Iterator[tuple[int, int]]:
    """First and last address of each loop without another one inside. Several branches may lead back to the first."""
    branches: dict[int, list[int]] = {}  # backward ones, by target
    for instruction in function.instructions:
        target = branch_target(instruction)
        if target is not None and function.address <= target <= instruction.address:
            branches.setdefault(target, []).append(instruction.address)
    # A branch that is rarely met is the way back from a rare case, not a loop.
    loops = {first: lasts for first, lasts in branches.items()
             if 2 * sum(profile.executions[last] for last in lasts) > profile.executions[first] > 0}
    for first, lasts in loops.items():
        next_loop = min((other for other in loops if other > first), default=lasts[-1] + 1)
        if lasts[0] < next_loop:
            yield first, max(last for last in lasts if last < next_loop)


def loop_at(profile: Profile, function: Function, first: int, last: int) -> Loop:
    """What runs more often than the first instruction belongs to something else."""
    iterations = profile.executions[first]
    inside = [instruction for instruction in function.instructions if first <= instruction.address <= last]
    body = [instruction for instruction in inside if 2 * profile.executions[instruction.address] >= iterations]
    executed = sum(min(profile.executions[instruction.address], iterations) for instruction in inside)
    return Loop(function, body, iterations, executed)


def hottest_loops(profile: Profile, count: int) -> list[Loop]:
    """Without loops that call functions, whose time llvm-mca does not know."""
    loops = [loop_at(profile, function, *ends)
             for function in profile.functions for ends in innermost_ranges(profile, function)]
    leaves = [loop for loop in loops if not any(instruction.text.startswith("bl") for instruction in loop.body)]
    return sorted(leaves, key=lambda loop: loop.executed, reverse=True)[:count]


def assembly(loop: Loop) -> str:
    """The body as straight code: where branches lead makes no difference to llvm-mca."""
    lines = [re.sub(r"\b[0-9a-f]+ <.*$", "loop", instruction.text) for instruction in loop.body]
    return "loop:\n" + "\n".join(lines) + "\n"


def cycles_per_iteration(loop: Loop, cpu: str) -> float:
    report = output_of("llvm-mca", "-mtriple=aarch64", f"-mcpu={cpu}", f"-iterations={SIMULATED_ITERATIONS}",
                       stdin=assembly(loop))
    cycles = re.search(r"Total Cycles: +(\d+)", report)
    if cycles is None:
        raise RuntimeError(f"llvm-mca says nothing about a loop of {loop.function.name}")
    return int(cycles[1]) / SIMULATED_ITERATIONS
