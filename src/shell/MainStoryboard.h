// The storyboard "Main": every screen of the app under an identifier equal to its class name.
#pragma once

namespace shell {

// Registers the screens built so far (and the plain pages standing in for the others).
// Main thread; call once at start-up (again is harmless).
void registerMainStoryboard();

}  // namespace shell
