#!/usr/bin/python3
"""Does to the real program what may go wrong around it, and looks at it from outside, on a virtual display.

Its processor is a script, which holds an analysis, a download or a result for as long as a step needs it. After each
fault no process, descriptor or partial file may be left, the menu must say what is the case, and where the helper
lives, its window must be of use. Prints one line per step and a table of all; the exit status is 0 when every step
held.
"""

from desktop_run import make_parser, run_privately, say
from mounts import enter_private_mounts
from steps import run_steps


def _try_faults(options, output, world, results):
    enter_private_mounts()
    # They reach for the accessibility bus of the environment, so only now.
    from environment_faults import environment_fault_steps
    from fault_run import FaultRun
    from processor_faults import killed_helper_steps, processor_steps
    from session_faults import session_steps
    from system_faults import system_steps

    run = FaultRun(options.helper, output, world)
    try:
        steps = [*processor_steps(), *killed_helper_steps(), *system_steps(), *environment_fault_steps(),
                 *session_steps()]
        run_steps(steps, run, results)
    finally:
        run.end(results)
        _print_table(results.outcomes)


def _print_table(outcomes):
    say("")
    say("| case | seen | held |")
    say("|---|---|---|")
    for sentence, outcome, seen in outcomes:
        say(f"| {sentence} | {seen} | {'yes' if outcome == 'held' else outcome} |")
    say("")


if __name__ == "__main__":
    run_privately(make_parser(__doc__), _try_faults)
