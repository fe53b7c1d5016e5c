#include "picture_services.h"

namespace qpxhost {

void* FindPictureService(const std::string&) {
  return nullptr;
}

HostObject* NewPictureInstance(Host&, const std::string&) {
  return nullptr;
}

}  // namespace qpxhost
