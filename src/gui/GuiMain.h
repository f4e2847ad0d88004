// The desktop app's entry: the window over the real platform, or a scripted run that writes
// screenshots.
#pragma once

#include <string>
#include <vector>

namespace gui {

// Runs the app with `args` (the program's arguments without its name):
//   [--library DIR]            the window, on the library (default: the pictures folder)
//   --screenshot DIR [--library DIR]
//                              offscreen: home, the find prompt, scanning, results and an
//                              interstitial, one PNG each in DIR (default library: a sample
//                              library made for the run, under a home of its own)
// Returns the process's exit code: 0, 2 for bad arguments, 3 when the window cannot open.
int runApp(const std::vector<std::string>& args, const char* programName);

}  // namespace gui
