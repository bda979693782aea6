"""Command line: options choose the mode and the print level, and what cannot be understood is reported."""

import signal

import pytest

from c_library import is_musl
from daemon_stories import PID_FILE, RUN_BEGINS, SEMAPHORE, assert_no_instance, preloaded
from sandbox.router import Router

OUT_OF_RANGE = "print level out of range [0-100]"


def usage(program: str) -> str:
    return (f"Usage: {program} --h\n"
            "\tEstablishes GRE Tunnels based on current configurations\n"
            "\t--printlvl (p)  : sets the printlvl [0-100]\n"
            "\t--daemonize (d) : initializes then waits on SIGUP signal\n"
            "\t--help (h)      : returns this message\n")


def assert_nothing_was_done(router: Router) -> None:
    assert [event.kind for event in router.timeline()] == ["start", "exit"]
    assert_no_instance(router)


def assert_one_run_was_made(router: Router) -> None:
    assert router.command_texts()[-1] == "firewall --init"
    assert_no_instance(router)


# ---- help ----

@pytest.mark.parametrize("arguments", [
    ["--help"], ["-h"], ["--h"], ["-p", "5", "-h"], ["-dh"], ["--help", "--printlvl", "101"], ["other", "-h"]])
def test_help_is_printed_and_nothing_else_is_done(router, arguments):
    done = router.run(*arguments)
    assert (done.status, done.stdout, done.stderr) == (0, usage(router.program_path), "")
    assert_nothing_was_done(router)


# ---- the print level ----

@pytest.mark.parametrize("level", [
    "101", "-5", "-1", "", "abc", "5x", "x5", " 5", "5 ", "1.5", "0x10", "2147483648", "4294967297",
    "99999999999999999999"])
def test_a_print_level_out_of_range_ends_the_program(router, level):
    done = router.run("--printlvl", level)
    assert (done.status, done.stdout, done.stderr) == (1, OUT_OF_RANGE, "")
    assert_nothing_was_done(router)


@pytest.mark.parametrize("arguments", [
    ["--printlvl=101"], ["-p", "101"], ["-p-5"], ["-p", "100", "-p", "101"], ["--daemonize", "-p", "101"]])
def test_a_print_level_out_of_range_is_found_wherever_it_stands(router, arguments):
    done = router.run(*arguments)
    assert (done.status, done.stdout) == (1, OUT_OF_RANGE)
    assert_nothing_was_done(router)


@pytest.mark.parametrize("arguments, lines", [
    (["--printlvl", "100"], True), (["--printlvl=100"], True), (["-p100"], True), (["--printlvl", "0"], False),
    (["-p", "0"], False), (["-p", "0", "--printlvl", "100"], True), (["-p", "100", "-p", "0"], False), ([], False)])
def test_the_last_print_level_counts(router, arguments, lines):
    """The limits of the range are levels too."""
    done = router.run(*arguments)
    assert (done.status, done.stdout, done.stderr) == (0, "", "")
    assert bool(router.find("log", RUN_BEGINS)) == lines
    assert_one_run_was_made(router)


# ---- what is no option of the program's ----

@pytest.mark.parametrize("arguments, glibc, musl", [
    (["--nonsense"], "unrecognized option '--nonsense'", "unrecognized option: nonsense"),
    (["-x"], "invalid option -- 'x'", "unrecognized option: x"),
    (["-p"], "option requires an argument -- 'p'", "option requires an argument: p"),
    (["--printlvl"], "option '--printlvl' requires an argument", "option requires an argument: printlvl"),
    (["--daemonize=now"], "option '--daemonize' doesn't allow an argument", "option does not take an argument: daemonize")])
def test_an_unknown_option_is_reported_and_ignored(router, program, arguments, glibc, musl):
    """The words are the C library's."""
    complaint = musl if is_musl(program) else glibc
    done = router.run(*arguments)
    assert (done.status, done.stdout, done.stderr) == (0, "", f"{router.program_path}: {complaint}\n")
    assert_one_run_was_made(router)


def test_parsing_goes_on_after_an_unknown_option(router):
    done = router.run("-x", "-p", "100")
    assert done.status == 0 and router.find("log", RUN_BEGINS)


def test_other_arguments_are_reported_and_ignored(router):
    done = router.run("one", "-p", "100", "two words", "--", "--three")
    assert (done.status, done.stdout) == (0, "")
    assert done.stderr == "non-option ARGV-elements: \none two words --three \n"
    assert router.find("log", RUN_BEGINS)
    assert_one_run_was_made(router)


def test_other_arguments_keep_no_daemon_from_starting(router):
    daemon = router.daemon("other")
    assert daemon.stderr == "non-option ARGV-elements: \nother \n"
    assert daemon.terminate() == 0


UNKNOWN_LETTER = """
#include <getopt.h>
int getopt_long(int argc, char *const argv[], const char *letters, const struct option *longs, int *index) {
  return 'z';
}
// As on a terminal: abort(3) writes out nothing that is still in a buffer.
__attribute__((constructor)) static void lineByLine(void) { setvbuf(stdout, NULL, _IOLBF, 0); }
"""


def test_an_option_letter_that_the_program_does_not_know_aborts_it(make_router, tmp_path):
    """The C library hands over only letters that it was given, so here it is replaced by one that does not."""
    router = make_router(environment=preloaded(tmp_path, UNKNOWN_LETTER))
    router.tolerate(signal.SIGABRT)
    done = router.run()
    assert (done.status, done.stdout) == (-signal.SIGABRT, "ABORTING!!\n")
    assert_nothing_was_done(router)


# ---- modes ----

def test_without_daemonize_one_run_is_made_in_the_foreground(router):
    router.program("firewall").on(stay=True, times=1)
    program = router.start("-p", "100")
    router.wait_for("exec", program="firewall")
    assert program.alive() and router.exists(SEMAPHORE) and not router.exists(PID_FILE)
    assert program.threads() == 1
    router.program("firewall").exit()
    assert program.wait_exit() == 0
    assert len(router.find("log", RUN_BEGINS)) == 1
    assert router.messages("INFO")[0].startswith("[TUNNEL_MNGR] MANAGING") and not router.find("log", "STARTING")
    assert_no_instance(router)


@pytest.mark.parametrize("arguments", [["--daemonize"], ["-d"], ["--d"], ["-dp", "100"], ["-p0", "-d"]])
def test_daemonize_leaves_a_daemon(router, arguments):
    started = router.start(*arguments)
    exit_event = router.wait_for("exit", pid=started.pid)
    daemon, = exit_event.daemons
    assert exit_event.status == 0
    assert router.process(daemon).terminate() == 0
    assert_no_instance(router)
