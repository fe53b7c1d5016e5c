#include "application_kind.h"

#include "host_services.h"

uint8_t IsDesktop = 0;
uint8_t IsConsole = 0;

void DetectApplicationKind() {
  if (IsDesktop || IsConsole) return;
  const bool desktop = REALGetClassRef("Application") != nullptr;
  const bool web = REALGetClassRef("WebApplication") != nullptr;
  const bool console = REALGetClassRef("ConsoleApplication") != nullptr;
  if (desktop) {
    IsDesktop = 1;
  } else if (web || console) {
    IsConsole = 1;
  }
}
