// The desktop app's entry: the window over the real platform, or a scripted run that writes
// screenshots.
#pragma once

#include <string>
#include <vector>

namespace gui {

// Runs the app with `args` (the program's arguments without its name):
//   [--library DIR]            the window, on the library (default: the pictures folder)
//   --screenshot DIR           offscreen: the screenshot journey (flows/screenshots.yaml) on a
//                              simulated phone, its PNGs in DIR
// Returns the process's exit code: 0, 1 when the screenshot journey fails, 2 for bad
// arguments, 3 when the window cannot open.
int runApp(const std::vector<std::string>& args, const char* programName);

}  // namespace gui
