"""Shows that layers.py finds what it is there to find, on small trees made for the purpose."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

LAYERS = pathlib.Path(__file__).with_name("layers.py")

CLEAN = {
    "effects/effects.h": "int run() { return system(command) + fork(); }\n",
    "support/text.h": "#include <string>\n",
    "support/text.cpp": '#include "support/text.h"\n',
    "support/CMakeLists.txt": "tunnel_mngr_folder(support SOURCES text.cpp)\n",
    "configuration/pull.h": '#include <json/value.h>\n#include "support/text.h"\n#include "monitors/monitor.h"\n',
    "configuration/CMakeLists.txt": "tunnel_mngr_folder(configuration SOURCES pull.cpp\n  KNOWS support monitors) # not core, not ipsec\n",
    "monitors/monitor.h": '#include "api/query.h"\n',
    "api/query.h": "#include <json/value.h>\n",
    "api/CMakeLists.txt": "tunnel_mngr_folder(api SOURCES query.cpp KNOWS support tunnel_mngr_json CURL::libcurl)\n",
    "core/run.h": '#include "configuration/pull.h"\n',
    "core/CMakeLists.txt": "tunnel_mngr_folder(core SOURCES run.cpp KNOWS configuration)\n"
                           "target_link_libraries(tunnel_mngr PRIVATE core)\n",
}


def run_on(files):
    """Exit status and output of layers.py on a tree of these files (path -> text)."""
    with tempfile.TemporaryDirectory() as folder:
        for path, text in files.items():
            file = pathlib.Path(folder, path)
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text, encoding="utf-8")
        end = subprocess.run([sys.executable, LAYERS, folder], capture_output=True, text=True, check=False)
    return end.returncode, end.stdout + end.stderr


class Layers(unittest.TestCase):
    def test_a_clean_tree_passes(self):
        self.assertEqual(run_on(CLEAN), (0, "every folder knows what it may know, and effects alone acts\n"))

    def test_each_violation_fails_and_is_named(self):
        rows = [
            # what is wrong, the file, its text, what the output has
            ("an include that runs up", "support/text.h", '#include "core/run.h"\n',
             "support/text.h: includes core/run.h: support may not know core"),
            ("an include of a neighbour", "configuration/pull.h", '#include "ipsec/service.h"\n', "configuration may not know ipsec"),
            ("in angle brackets", "api/query.h", "#include <configuration/pull.h>\n", "api may not know configuration"),
            ("with blanks", "api/query.h", '  #  include\t"configuration/pull.h"\n', "api may not know configuration"),
            ("in a source file", "api/query.cpp", '#include "api/query.h"\n\n#include "core/run.h"\n',
             "api/query.cpp: includes core/run.h"),
            ("in a folder below", "api/parts/deep.cpp", '#include "core/run.h"\n', "api/parts/deep.cpp"),
            ("without a folder", "api/query.h", '#include "wan_list.h"\n', "api/query.h: includes wan_list.h"),
            ("through the folder above", "api/query.h", '#include "../core/run.h"\n', "includes ../core/run.h"),
            ("of the simulator", "core/run.h", '#include "simulation/world.h"\n', "core may not know simulation"),
            ("of the tests", "core/run.h", '#include "tests/unit/harness/waiting.h"\n', "includes tests/"),
            ("JSON in support", "support/text.h", "#include <json/value.h>\n", "support does without this library"),
            ("curl in support", "support/text.h", "#include <curl/curl.h>\n", "support does without this library"),
            ("KNOWS too much", "api/CMakeLists.txt", "tunnel_mngr_folder(api SOURCES query.cpp KNOWS support gre)\n",
             "api/CMakeLists.txt: links gre: api may not know gre"),
            ("KNOWS too much, on several lines", "configuration/CMakeLists.txt",
             "tunnel_mngr_folder(configuration\n  SOURCES pull.cpp\n  KNOWS support\n        ipsec)\n", "configuration may not know ipsec"),
            ("linked directly", "monitors/CMakeLists.txt", "target_link_libraries(monitors PUBLIC core)\n",
             "monitors may not know core"),
            ("JSON linked to support", "support/CMakeLists.txt",
             "tunnel_mngr_folder(support SOURCES text.cpp KNOWS tunnel_mngr_json)\n", "links tunnel_mngr_json"),
            ("a circle of two", "api/query.h", '#include "api/wan_list.h"\n',
             "circle: api/query.h -> api/wan_list.h -> api/query.h"),
            ("a header that includes itself", "api/query.h", '#include "api/query.h"\n',
             "circle: api/query.h -> api/query.h"),
        ]
        beside = {"api/wan_list.h": '#include "api/query.h"\n'}
        for what, path, text, expected in rows:
            with self.subTest(what):
                status, output = run_on({**CLEAN, **beside, path: text})
                self.assertEqual(status, 1, output)
                self.assertIn(expected, output)

    def test_only_effects_acts(self):
        for code in ("system(text);", "return ::system(text);", "std::system(text);", 'popen("ip tunnel", "re");', "x = fork();",
                     "execlp(a, b);", "execvp (a, b);", "kill(pid, SIGTERM);", "waitpid(pid, nullptr, 0);", "chmod(path, mode);",
                     "umask(0);", "unlink(path);", "sem_open(name, 0);", "setsid();", "open(path, O_WRONLY);",
                     "open(path, O_RDONLY | O_CREAT, 0644);", "std::ofstream file(path);", "#include <fstream>\n",
                     'fopen(path, "w");', 'fopen("/run/x", "w");', "fopen(path, mode);", "usleep(seconds * 1000);",
                     "system(x ? a : b);", "kill(pid == 0 ? 1 : pid, 9);", "std::filesystem::remove_all(path);", 'fopen(path.c_str(), "ae");', 'f("//"); unlink(path);'):
            with self.subTest(code):
                status, output = run_on({**CLEAN, "configuration/act.cpp": code})
                self.assertEqual(status, 1, output)
                self.assertRegex(output, "^configuration/act.cpp: .*: what acts on the router does so through effects$")

    def test_what_only_looks_like_acting_passes(self):
        for code in ("// system(text)\n", "/* fork()\n kill(1) */", "effects().kill(pid);", "other->unlink(path);",
                     "ZEL::System::system(text);", "filesystem(path);", "sleep(1);", 'fopen(path, "re");', 'fopen("/var/run/a", "r");', "std::ifstream file;",
                     "open(path, O_RDONLY);", "#include <sys/wait.h>\n"):
            with self.subTest(code):
                self.assertEqual(run_on({**CLEAN, "configuration/act.cpp": code})[0], 0)

    def test_what_is_not_shipped_may_act(self):
        self.assertEqual(run_on({**CLEAN, "simulation/isolation.cpp": "child = fork();\n"})[0], 0)

    def test_a_circle_of_folders_fails(self):
        status, output = run_on({"api/query.h": '#include "monitors/monitor.h"\n',
                                 "monitors/monitor.h": '#include "api/query.h"\n'})
        self.assertEqual(status, 1)
        self.assertIn("circle: api/query.h -> monitors/monitor.h -> api/query.h", output)
        self.assertIn("api may not know monitors", output)

    def test_a_tree_without_sources_fails(self):
        status, output = run_on({"docs/page.md": "text\n"})
        self.assertEqual(status, 1)
        self.assertIn("no sources found", output)


if __name__ == "__main__":
    unittest.main()
