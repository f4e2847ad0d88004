// Small file helpers of the desktop platform: whole-file reads, atomic replacement, and the
// diagnostics channel through which platform services report trouble that has no caller to
// go to.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace desktop {

// The contents of `path`, or nothing when it cannot be read (`error` says why; a missing file
// leaves `error` empty).
std::optional<std::string> readWholeFile(const std::string& path, std::string* error = nullptr);

// Replaces `path` with `contents` so that a reader sees the old file or the new one, never a
// mix, even after a crash: a temporary file beside it is written and flushed to disk, renamed
// over `path`, and the folder is flushed. A new file gets `mode`. False with `error` filled on
// failure (then `path` is unchanged and no temporary file is left).
bool writeFileAtomically(const std::string& path, std::string_view contents, mode_t mode,
                         std::string* error = nullptr);

// The folder part of `path` ("." when it has none) and its last component.
std::string parentPath(const std::string& path);
std::string lastComponent(const std::string& path);

// The lines of a shell-style settings file (KEY=value lines, '#' comments) that hold something:
// blank and comment lines left out, leading blanks and tabs removed. The views point into
// `text`.
std::vector<std::string_view> settingLines(std::string_view text);

// Receives platform diagnostics (one line, no trailing newline). Thread-safe; the default
// writes "solvanta: <line>" to standard error.
using DiagnosticHandler = std::function<void(const std::string& line)>;
// Installs `handler` (null restores the default) and returns the previous one.
DiagnosticHandler setDiagnosticHandler(DiagnosticHandler handler);
void diagnose(const std::string& line);

}  // namespace desktop
