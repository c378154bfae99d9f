// Runs a test's own code as the program on the simulated Mac.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "simulator/kernel/Process.h"
#include "tests/support/Play.h"

// Sets the machine up by the lines of `scenario`, runs `body` on the program's main thread, and ends the program.
Played runAsProgram(const std::string& scenario, const std::function<void()>& body, std::uint64_t seed = 1);

// The same on a machine without anything, to a good end.
void runProgram(const std::function<void()>& body);

// In such a program: lets the main thread do its work for that long.
void runLoopFor(std::chrono::milliseconds time);

// A program that does `body` and ends.
simulator::Program programOf(std::function<void()> body);

// Runs `body` as such a program; when it breaks a rule, the run stops with a fatal record on standard error.
void runStrictly(const std::function<void()>& body);

// A program that does `begins` when its application has finished launching, and then what its run loop has to do;
// `ends` is called when it is told to end.
simulator::Program application(std::function<void()> begins, std::function<void()> ends = {});
