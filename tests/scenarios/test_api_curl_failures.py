"""Configuration API: what libcurl is asked for, and what becomes of a request that it refuses before it is made. A shared
object loaded before libcurl takes its place."""

import subprocess

import pytest

from daemon_stories import documents
from raw_http import curl_says
from sandbox.router import Router
from tunnel_records import (NO_WAN_INFORMATION, TAG, WANS_URL, create_command, gre_tunnel, ip_commands, lines, router_with,
                            run_once)

# Notes the calls of the program, and not libcurl's own, which uses handles of its own.
SHIM = r"""
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/auxv.h>

enum { UNKNOWN_OPTION = 48, SOCKET_PATH = 10231, URL = 10002, FIRST_POINTER = 10000, FIRST_FUNCTION = 20000 };

static FILE* calls;
static char* text;
static size_t size;

static void* moduleOf(void* address) {
  Dl_info info;
  return dladdr(address, &info) ? info.dli_fbase : NULL;
}

static int ours(void* caller) {
  if (moduleOf(caller) != moduleOf((void*)getauxval(AT_PHDR))) return 0;
  if (!calls) calls = open_memstream(&text, &size);
  return 1;
}

static void noteOption(int option, void* value) {
  if (option == SOCKET_PATH || option == URL) fprintf(calls, "%d %s\n", option, (char*)value);
  else if (option < FIRST_POINTER) fprintf(calls, "%d %ld\n", option, (long)value);
  else if (option < FIRST_FUNCTION) fprintf(calls, "%d %s\n", option, value ? "pointer" : "null");
  else fprintf(calls, "%d %s\n", option, ours(value) ? "function" : "foreign function");
}

void* curl_easy_init(void) {
  if (ours(__builtin_return_address(0))) {
    if (getenv("FAIL_INIT")) return NULL;
    fputs("open\n", calls);
  }
  return ((void* (*)(void))dlsym(RTLD_NEXT, "curl_easy_init"))();
}

/* Every option's value is as wide as a pointer here and passed like one. */
int curl_easy_setopt(void* curl, int option, ...) {
  va_list arguments;
  va_start(arguments, option);
  void* value = va_arg(arguments, void*);
  va_end(arguments);
  if (ours(__builtin_return_address(0))) noteOption(option, value);
  const char* failing = getenv("FAIL_OPTION");
  if (failing && atoi(failing) == option) return UNKNOWN_OPTION;
  return ((int (*)(void*, int, ...))dlsym(RTLD_NEXT, "curl_easy_setopt"))(curl, option, value);
}

int curl_easy_perform(void* curl) {
  if (ours(__builtin_return_address(0))) fputs("perform\n", calls);
  return ((int (*)(void*))dlsym(RTLD_NEXT, "curl_easy_perform"))(curl);
}

void curl_easy_cleanup(void* curl) {
  if (ours(__builtin_return_address(0))) fputs("close\n", calls);
  ((void (*)(void*))dlsym(RTLD_NEXT, "curl_easy_cleanup"))(curl);
}

__attribute__((destructor)) static void report(void) {
  FILE* file = calls ? fopen("/run/curl", "w") : NULL;
  if (!file) return;
  fclose(calls);
  fputs(text, file);
  fclose(file);
}
"""

# The options that a request is made of, in the order in which they are set, as <curl/curl.h> numbers them; the names
# under which their failures are reported, where the socket is reported as the URL that it belongs to; and their values.
REQUIRED = [(10231, "CURLOPT_URL", "/var/run/api/http.sock"), (10002, "CURLOPT_URL", "{url}"), (42, "CURLOPT_HEADER", "0"),
            (52, "CURLOPT_FOLLOWLOCATION", "0"), (20011, "CURLOPT_WRITEFUNCTION", "function"),
            (10001, "CURLOPT_WRITEDATA", "pointer")]
# And those without which it works just as well: CURLOPT_NOSIGNAL, _OPENSOCKETFUNCTION, _CONNECTTIMEOUT, _LOW_SPEED_LIMIT,
# _LOW_SPEED_TIME.
PRECAUTIONS = [(99, "1"), (20163, "function"), (78, "60"), (19, "1"), (20, "60")]
SETTINGS = [f"{number} {value}" for number, _, value in REQUIRED] + [f"{number} {value}" for number, value in PRECAUTIONS]

URLS = [f"http://localhost{path}" for path in (WANS_URL, "/api?fields=ovpnTunnels", "/api?fields=syslog", WANS_URL,
                                               "/api?fields=greTunnels,ipsecTunnels,ni")]
UNKNOWN_OPTION = 48  # libcurl-errors(3)


@pytest.fixture(scope="module")
def shim(tmp_path_factory) -> str:
    folder = tmp_path_factory.mktemp("shim")
    (folder / "shim.c").write_text(SHIM)
    subprocess.run(["cc", "-shared", "-fPIC", "-o", folder / "shim.so", folder / "shim.c", "-ldl"], check=True)
    return str(folder / "shim.so")


def run_with(make_router, shim: str, **environment: str) -> Router:
    router = router_with(make_router, documents(gre_tunnel()), environment={"LD_PRELOAD": shim} | environment)
    run_once(router)
    return router


def calls(router: Router) -> list[str]:
    """What libcurl was called for."""
    return (router.read_file("/run/curl") or "").splitlines()


def calls_of(url: str) -> list[str]:
    """The calls of a whole request: these options and no others, an option for a proxy least of all."""
    return ["open", *(setting.format(url=url) for setting in SETTINGS), "perform", "close"]


def test_a_request_sets_these_options_to_these_values_and_no_others(make_router, shim):
    router = run_with(make_router, shim)
    assert lines(router, "ERROR") == []
    assert calls(router) == [call for url in URLS for call in calls_of(url)]
    assert [f"http://localhost{event.text}" for event in router.find("api")] == URLS


@pytest.mark.parametrize("option, name", [(option, name) for option, name, _ in REQUIRED])
def test_an_option_that_cannot_be_set_is_reported(make_router, shim, option, name):
    router = run_with(make_router, shim, FAIL_OPTION=str(option))
    error = f"{TAG} curl_easy_setopt({name}) failed: {curl_says(UNKNOWN_OPTION)}"
    assert lines(router, "ERROR")[:2] == [error, NO_WAN_INFORMATION]
    assert router.find("api", WANS_URL) == [] and ip_commands(router) == []
    numbers = [str(number) for number, _, _ in REQUIRED]
    up_to = numbers.index(str(option)) + 1
    assert [call.split()[0] for call in calls(router)][:up_to + 2] == ["open", *numbers[:up_to], "close"]


@pytest.mark.parametrize("option", [option for option, _ in PRECAUTIONS])
def test_a_precaution_that_libcurl_does_not_know_is_done_without(make_router, shim, option):
    """It is asked for all the same, and the run is as ever, line by line."""
    plain, without = run_with(make_router, shim), run_with(make_router, shim, FAIL_OPTION=str(option))
    assert ip_commands(without) == [create_command(), "ip link set gre1 up"]
    assert [line.message for line in without.log_lines()] == [line.message for line in plain.log_lines()]
    assert calls(without) == calls(plain) != []


def test_a_handle_that_cannot_be_had_is_reported(make_router, shim):
    router = run_with(make_router, shim, FAIL_INIT="1")
    assert lines(router, "ERROR")[:2] == [f"{TAG} unable to initialize curl.", NO_WAN_INFORMATION]
    assert router.find("api") == [] and ip_commands(router) == [] and calls(router) == []
