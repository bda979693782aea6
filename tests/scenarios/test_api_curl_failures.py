"""Configuration API: libcurl fails before a request is made. A shared object loaded before libcurl takes its place."""

import subprocess

import pytest

from daemon_stories import documents
from raw_http import curl_says
from tunnel_records import NO_WAN_INFORMATION, TAG, WANS_URL, gre_tunnel, ip_commands, lines, router_with, run_once

SHIM = r"""
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { UNKNOWN_OPTION = 48 };

static int opened, closed, count;
static int options[1000];

/* Whether a call comes from libcurl, which uses handles of its own. */
static int internal(void* caller) {
  Dl_info info;
  return dladdr(caller, &info) && strstr(info.dli_fname, "libcurl");
}

void* curl_easy_init(void) {
  if (!internal(__builtin_return_address(0))) {
    if (getenv("FAIL_INIT")) return NULL;
    ++opened;
  }
  return ((void* (*)(void))dlsym(RTLD_NEXT, "curl_easy_init"))();
}

/* Every option's value is as wide as a pointer here and passed like one. */
int curl_easy_setopt(void* curl, int option, ...) {
  va_list arguments;
  va_start(arguments, option);
  void* value = va_arg(arguments, void*);
  va_end(arguments);
  if (count < 1000) options[count++] = option;
  const char* failing = getenv("FAIL_OPTION");
  if (failing && atoi(failing) == option) return UNKNOWN_OPTION;
  return ((int (*)(void*, int, ...))dlsym(RTLD_NEXT, "curl_easy_setopt"))(curl, option, value);
}

void curl_easy_cleanup(void* curl) {
  if (!internal(__builtin_return_address(0))) ++closed;
  ((void (*)(void*))dlsym(RTLD_NEXT, "curl_easy_cleanup"))(curl);
}

__attribute__((destructor)) static void report(void) {
  FILE* file = opened ? fopen("/run/curl", "w") : NULL;
  if (!file) return;
  fprintf(file, "%d %d", opened, closed);
  for (int i = 0; i < count; ++i) fprintf(file, " %d", options[i]);
  fclose(file);
}
"""

# The options that a request is made of, in the order in which they are set, as <curl/curl.h> numbers them, and the names
# under which their failures are reported. The socket is reported as the URL that it belongs to.
OPTIONS = [(10231, "CURLOPT_URL"), (10002, "CURLOPT_URL"), (42, "CURLOPT_HEADER"), (52, "CURLOPT_FOLLOWLOCATION"),
           (20011, "CURLOPT_WRITEFUNCTION"), (10001, "CURLOPT_WRITEDATA")]
UNKNOWN_OPTION = 48  # libcurl-errors(3)


@pytest.fixture(scope="module")
def shim(tmp_path_factory) -> str:
    folder = tmp_path_factory.mktemp("shim")
    (folder / "shim.c").write_text(SHIM)
    subprocess.run(["cc", "-shared", "-fPIC", "-o", folder / "shim.so", folder / "shim.c", "-ldl"], check=True)
    return str(folder / "shim.so")


def run_with(make_router, shim: str, **environment: str):
    router = router_with(make_router, documents(gre_tunnel()), environment={"LD_PRELOAD": shim} | environment)
    run_once(router)
    return router


def counts(router) -> tuple[int, int, list[int]]:
    """How many handles were opened and closed, and the options in the order in which they were set."""
    opened, closed, *options = map(int, router.read_file("/run/curl").split())
    return opened, closed, options


def test_options_are_set_in_order_and_handles_are_closed(make_router, shim):
    router = run_with(make_router, shim)
    assert lines(router, "ERROR") == []
    opened, closed, options = counts(router)
    assert opened == closed == len(router.find("api"))
    assert options[:len(OPTIONS)] == [number for number, _ in OPTIONS]


@pytest.mark.parametrize("option, name", OPTIONS)
def test_an_option_that_cannot_be_set_is_reported(make_router, shim, option, name):
    router = run_with(make_router, shim, FAIL_OPTION=str(option))
    error = f"{TAG} curl_easy_setopt({name}) failed: {curl_says(UNKNOWN_OPTION)}"
    assert lines(router, "ERROR")[:2] == [error, NO_WAN_INFORMATION]
    assert router.find("api", WANS_URL) == [] and ip_commands(router) == []
    opened, closed, _ = counts(router)
    assert opened == closed


def test_a_handle_that_cannot_be_had_is_reported(make_router, shim):
    router = run_with(make_router, shim, FAIL_INIT="1")
    assert lines(router, "ERROR")[:2] == [f"{TAG} unable to initialize curl.", NO_WAN_INFORMATION]
    assert router.find("api") == [] and ip_commands(router) == []
