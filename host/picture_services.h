// Picture services of the emulated host.
#pragma once

#include <string>

namespace qpxhost {

class Host;
class HostObject;

// The picture service of that name, or null.
void* FindPictureService(const std::string& serviceName);
// "Picture" through "PluginNewInstance" (an empty 0 x 0 picture until its constructor runs);
// null for any other class.
HostObject* NewPictureInstance(Host& host, const std::string& className);

}  // namespace qpxhost
