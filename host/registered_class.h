// What a module registered through "PluginRegisterClassExtension", decoded as the host reads it.
#pragma once

#include <string>
#include <vector>

#include "REALplugin.h"
#include "declaration.h"

namespace qpxhost {

struct RegisteredMethod {
  std::string declarationText;
  Declaration declaration;
  void (*function)() = nullptr;
  REALword flags = 0;
};

struct RegisteredClass {
  REALword version = 0;  // word 0: the layout the rows use (9: older rows)
  std::string name;
  REALword flags = 0;
  std::vector<RegisteredMethod> methods;
  std::vector<RegisteredMethod> sharedMethods;
  REALword propertyCount = 0, sharedPropertyCount = 0, eventCount = 0, constantCount = 0;
};

// Reads a record in the layout its version word names: rows of the current layout from
// version 10 on, the older rows for version 9.
RegisteredClass DecodeClassDefinition(const REALclassDefinition& record);

}  // namespace qpxhost
