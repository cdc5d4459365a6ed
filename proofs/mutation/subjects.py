"""What faults are put into, and which tests look for them."""
import copy
from typing import NamedTuple

from build import Build

LIBRARIES = ("libKorvaneVAD_v3.0.so", "libkorvane-streams.so.1.0.0")
CORE_TESTS = ["pipeline_test", "spectral_gain_test", "filter_bank_test", "fft288_test", "detector_test",
              "stream_test", "fft288_uninitialised_test", "speech_score_test", "streams_test", "conformance"]
VECTOR_TESTS = ["vector_test", *CORE_TESTS]


class Subject(NamedTuple):
    """A part of the tree. Names of tests that end in _test are those of programs, others are CTest's."""
    folders: tuple
    tests: dict  # name -> pattern of the files whose faults it may see, in the order in which they are tried
    count: int  # of the faults of a long run
    mark: float  # what part of them must be noticed or argued
    products: tuple  # what is made of the sources, and what the tests of CTest run
    packages: str  # of Debian
    options: str = ""  # for CMake
    targets: tuple = ()  # what the tests need besides
    left_out: tuple = ()  # files that this build does not use
    page: str = ""  # what a script makes of sources that no compiler reads
    tries: dict = {}  # tests that wait for something, and so may fail on a busy machine, are tried again

    def takes(self, file):
        return file.endswith((".cpp", ".h", ".inc", ".js")) and file not in self.left_out

    def quick(self):
        if not self.page:
            return [Build("plain", self, "-DKORVANE_SIMD=OFF", CORE_TESTS), Build("vector", self)]
        return [Build("tool", self)]

    def thorough(self, quick):
        """For what the quick builds and the arguments leave: the sanitizers, and lesser processors."""
        if self.page:
            return []
        builds = [Build("sanitizers", self, "-DKORVANE_SANITIZE=ON", patience=600)]
        for processor in ("qemu64", "max,-avx2"):
            emulated = copy.copy(quick[1])
            emulated.name = processor
            emulated.emulator = f"qemu-x86_64 -cpu {processor}"
            emulated.patience = builds[0].patience
            # vector_test itself is partly compiled for AVX2, which the older processor cannot run.
            emulated.tests = ["fft288_test", "pipeline_test"] + (["vector_test"] if processor != "qemu64" else [])
            emulated.must_pass()
            builds.append(emulated)
        return builds


CORE = Subject(folders=("detector/", "nrss/", "dsp/", "speech/", "streams/"), tests={test: "" for test in VECTOR_TESTS},
               count=500, mark=1, products=LIBRARIES, packages="+build googletest pkg-config python3 qemu-user",
               options="-DKORVANE_BUILD_TOOLS=OFF", targets=("conformance", "korvane_streams"))
COMPILED = r"\.(cpp|h)$"
TOOL = Subject(folders=("tools/", "segments/"), count=150, mark=0.9,
               tests={"segments_test": "", "tool_test": "", "report_parts_test": COMPILED,
                      "tool.texts": "tools/cli/", "tool.command_line": COMPILED, "tool.batch": COMPILED, "tool.terminal": COMPILED,
                      "tool.failing_calls": COMPILED, "tool.selftest": "selftest",
                      "report.browser": "tools/report/"},
               products=("tools/korvane-vad", "tools/write_texts"), packages="+tests chromium",
               targets=("korvane-vad", "write_texts", "wrong_transform", "failing_calls", "report_browser_packages"),
               left_out=("tools/report/without_page.cpp",), page="tools/report/page_text.cpp",
               tries={"report.browser": 2, "tool.terminal": 2})
