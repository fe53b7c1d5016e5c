#include "registered_class.h"

namespace qpxhost {
namespace {

template <typename Row>
std::vector<RegisteredMethod> DecodeMethods(const void* table, REALword count) {
  std::vector<RegisteredMethod> methods;
  if (table == nullptr) return methods;
  const Row* rows = static_cast<const Row*>(table);
  for (REALword i = 0; i < count; ++i) {
    RegisteredMethod method;
    method.declarationText = rows[i].declaration ? rows[i].declaration : "";
    method.declaration = ParseDeclaration(method.declarationText);
    method.function = rows[i].function;
    method.flags = rows[i].mFlags;
    methods.push_back(std::move(method));
  }
  return methods;
}

}  // namespace

RegisteredClass DecodeClassDefinition(const REALclassDefinition& record) {
  RegisteredClass decoded;
  decoded.version = record.version;
  decoded.name = record.name ? record.name : "";
  decoded.flags = record.mFlags;
  if (record.version <= 9) {
    decoded.methods = DecodeMethods<REALmethodDefinitionV9>(record.methods, record.methodCount);
    decoded.sharedMethods =
        DecodeMethods<REALmethodDefinitionV9>(record.sharedMethods, record.sharedMethodCount);
  } else {
    decoded.methods = DecodeMethods<REALmethodDefinition>(record.methods, record.methodCount);
    decoded.sharedMethods =
        DecodeMethods<REALmethodDefinition>(record.sharedMethods, record.sharedMethodCount);
  }
  decoded.propertyCount = record.propertyCount;
  decoded.sharedPropertyCount = record.sharedPropertyCount;
  decoded.eventCount = record.eventCount;
  decoded.constantCount = record.constantCount;
  return decoded;
}

}  // namespace qpxhost
