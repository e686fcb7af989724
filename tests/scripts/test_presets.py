"""./test: that no test was found is a failure, and a build folder that was made for something else is made right."""

import os
import subprocess

import pytest

from checkout import Checkout

PROJECT = """
cmake_minimum_required(VERSION 3.21)
project(small LANGUAGES NONE)
option(BUILD_EXAMPLES "" ON)
option(SANITIZE "" OFF)
foreach(variable BUILD_BENCHMARKS CMAKE_EXPORT_COMPILE_COMMANDS CMAKE_INTERPROCEDURAL_OPTIMIZATION COVERAGE FUZZ KELTA_ROOT QT_MAJOR
        WARNINGS_AS_ERRORS)
    set(known "${${variable}}")
endforeach()
add_custom_target(talk ALL COMMAND yes | head -n 50000)
include(CTest)
if(BUILD_TESTING)
    add_test(NAME one COMMAND ${CMAKE_COMMAND} -E true)
endif()
"""


@pytest.fixture
def checkout(tmp_path):
    """With the real CMake, but a project in which there is nothing to compile."""
    made = Checkout(tmp_path)
    (made.folder / "CMakeLists.txt").write_text(PROJECT)
    for name in ("cmake", "ctest"):
        made.stub(name, f'#!/bin/sh\nexec "{os.environ[f"{name.upper()}_COMMAND"]}" "$@"\n')
    (made.stubs / "ninja").unlink()
    return made


def test_a_test_that_passes(checkout):
    done = checkout.call("./test")
    assert done.returncode == 0 and done.stdout.endswith("== Everything passed\n"), done.stdout + done.stderr


def test_no_test_is_found(checkout):
    done = checkout.call("./test -- -R nothing_of_this_name")
    assert done.returncode != 0 and "Everything passed" not in done.stdout
    assert "No tests were found" in done.stdout + done.stderr


def test_nobody_reads_what_is_built(checkout):
    done = checkout.pipe("./test | head -n 3; exit ${PIPESTATUS[0]}")
    assert done.returncode != 0
    assert len(done.stderr.splitlines()) <= 1 and "CMake" not in done.stderr


def test_a_build_that_fails(checkout):
    (checkout.folder / "CMakeLists.txt").write_text(PROJECT + "add_custom_target(fails ALL COMMAND false)")
    done = checkout.call("./test")
    assert done.returncode != 0 and "FAILED: " in done.stdout and "Everything passed" not in done.stdout
    assert "CMake Error: Generator" not in done.stderr


def test_a_build_folder_without_tests_gets_them(checkout):
    subprocess.run(["cmake", "--preset", "release", "-DBUILD_TESTING=OFF", "-DBUILD_EXAMPLES=OFF", "-DSANITIZE=ON"], check=True,
                   cwd=checkout.folder, env=checkout.environment, stdout=subprocess.DEVNULL)
    done = checkout.call("./test")
    assert done.returncode == 0 and "100% tests passed, 0 tests failed out of 1" in done.stdout
    cache = (checkout.folder / "build/CMakeCache.txt").read_text()
    assert {"BUILD_TESTING:BOOL=ON", "BUILD_EXAMPLES:BOOL=ON", "SANITIZE:BOOL=OFF"} <= set(cache.splitlines())


def test_every_preset_says_what_it_builds(checkout):
    """A value that no preset names is that of whoever has configured the folder last."""
    options = {"BUILD_TESTING", "BUILD_EXAMPLES", "BUILD_BENCHMARKS", "QT_MAJOR", "KELTA_ROOT", "SANITIZE", "COVERAGE", "FUZZ"}
    presets = checkout.presets("configurePresets")
    for name, preset in presets.items():
        named = set(preset["cacheVariables"])
        while "inherits" in preset:
            preset = presets[preset["inherits"]]
            named |= set(preset["cacheVariables"])
        assert options <= named, name
