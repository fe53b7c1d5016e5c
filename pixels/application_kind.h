// Which kind of host application runs: desktop pictures open as bitmap contexts, console and
// web pictures through the host's row table.
#pragma once

#include <cstdint>

// Set once detected; never cleared.
extern uint8_t IsDesktop;
extern uint8_t IsConsole;

// Sets IsDesktop when the class "Application" exists, else IsConsole when "WebApplication" or
// "ConsoleApplication" does. Does nothing once either flag is set.
void DetectApplicationKind();
