// Flag words, the older property rows and the older record layout, on records of our own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "class_registration.h"
#include "globals.h"
#include "host.h"

namespace {

void Fn1() {}
void Fn2() {}

TEST(InterfaceVersionForHost, Thresholds) {
  EXPECT_EQ(InterfaceVersionForHost(2013.03), 12);
  EXPECT_EQ(InterfaceVersionForHost(2014.0), 12);
  EXPECT_EQ(InterfaceVersionForHost(2013.02), 11);
  EXPECT_EQ(InterfaceVersionForHost(2013.0), 11);
  EXPECT_EQ(InterfaceVersionForHost(2012.9), 10);
  EXPECT_EQ(InterfaceVersionForHost(2012.0), 10);
  EXPECT_EQ(InterfaceVersionForHost(2011.9), 9);
  EXPECT_EQ(InterfaceVersionForHost(0.0), 9);
}

TEST(FixFlagWord, NewRuleTurnsBitsIntoFlags) {
  EXPECT_EQ(FixFlagWord(0x40000, 2010.029), 0x4);
  EXPECT_EQ(FixFlagWord(0x80000, 2010.029), 0x8);
  EXPECT_EQ(FixFlagWord(0xC0000, 2013.03), 0xC);
  EXPECT_EQ(FixFlagWord(0x1C0000, 2013.03), 0xC);
  EXPECT_EQ(FixFlagWord(0x100000, 2013.03), 0x0);
  EXPECT_EQ(FixFlagWord(0x100001, 2013.03), 0x1);
  EXPECT_EQ(FixFlagWord(0x40010, 2013.03), 0x14);
}

TEST(FixFlagWord, OldRuleOnlyClearsBits) {
  EXPECT_EQ(FixFlagWord(0x40000, 2010.028), 0x0);
  EXPECT_EQ(FixFlagWord(0xC0000, 2010.028), 0x0);
  EXPECT_EQ(FixFlagWord(0x100000, 0.0), 0x0);
  EXPECT_EQ(FixFlagWord(0xFF1C0003, 2010.028), 0xFF000003);
}

TEST(FixClassFlags, VisitsClassAndEveryFlaggedTable) {
  REALmethodDefinition methods[2] = {{Fn1, nullptr, "A()", 0x40000, 0, nullptr},
                                     {Fn2, nullptr, "B()", 0x80000, 0, nullptr}};
  REALmethodDefinition shared[1] = {{Fn1, nullptr, "S()", 0xC0000, 0, nullptr}};
  REALproperty properties[1] = {};
  properties[0].flags = 0x140000;
  REALproperty sharedProperties[1] = {};
  sharedProperties[0].flags = 0x100000;
  REALclassDefinition record = {};
  record.mFlags = 0x80000;
  record.methods = methods;
  record.methodCount = 2;
  record.sharedMethods = shared;
  record.sharedMethodCount = 1;
  record.properties = properties;
  record.propertyCount = 1;
  record.sharedProperties = sharedProperties;
  record.sharedPropertyCount = 1;

  FixClassFlags(&record, 2013.03);
  EXPECT_EQ(record.mFlags, 0x8);
  EXPECT_EQ(methods[0].mFlags, 0x4);
  EXPECT_EQ(methods[1].mFlags, 0x8);
  EXPECT_EQ(shared[0].mFlags, 0xC);
  EXPECT_EQ(properties[0].flags, 0x4);
  EXPECT_EQ(sharedProperties[0].flags, 0x0);
}

TEST(FixClassFlags, SkipsNullAndEmptyTables) {
  REALmethodDefinition methods[1] = {{Fn1, nullptr, "A()", 0x40000, 0, nullptr}};
  REALclassDefinition record = {};
  record.methods = methods;
  record.methodCount = 0;
  record.sharedMethods = methods;
  record.sharedMethodCount = -1;
  record.properties = nullptr;
  record.propertyCount = 3;
  FixClassFlags(&record, 2013.03);
  EXPECT_EQ(methods[0].mFlags, 0x40000);
}

TEST(FixProperties, NullOrEmptyGivesNull) {
  REALproperty one[1] = {};
  EXPECT_EQ(FixProperties(nullptr, 3), nullptr);
  EXPECT_EQ(FixProperties(one, 0), nullptr);
  EXPECT_EQ(FixProperties(one, -1), nullptr);
}

TEST(FixProperties, KeepsTheFirstTenWordsOfEachRow) {
  REALproperty rows[2];
  for (int r = 0; r < 2; ++r) {
    auto* words = reinterpret_cast<REALword*>(&rows[r]);
    for (int w = 0; w < 12; ++w) words[w] = 100 * (r + 1) + w;
  }
  REALpropertyV9* older = FixProperties(rows, 2);
  ASSERT_NE(older, nullptr);
  static_assert(sizeof(REALpropertyV9) == 10 * sizeof(REALword));
  for (int r = 0; r < 2; ++r) {
    const auto* words = reinterpret_cast<const REALword*>(&older[r]);
    for (int w = 0; w < 10; ++w) EXPECT_EQ(words[w], 100 * (r + 1) + w);
  }
  std::free(older);
}

// Registering a full record of our own through the older layout, into the emulated host.
TEST(RegisterClassRecord, OlderLayoutConvertsEveryTable) {
  qpxhost::Host host;
  gResolver = &qpxhost::Host::Resolve;

  REALmethodDefinition methods[2] = {{Fn1, nullptr, "A(x as integer) as picture", 0x4, 7, nullptr},
                                     {Fn2, Fn1, "B() as boolean", 0x8, 0, nullptr}};
  REALmethodDefinition shared[1] = {{Fn2, nullptr, "S()", 0x0, 0, nullptr}};
  REALproperty properties[1] = {};
  properties[0].name = "P";
  properties[0].attributeCount = 99;
  REALevent events[2] = {{"E1()", 11, 1, nullptr}, {"E2()", 22, 2, nullptr}};
  REALconstant constants[3] = {
      {"C1 = 1", 1, 2, 3, nullptr}, {"C2 = 2", 4, 5, 6, nullptr}, {"C3 = 3", 7, 8, 9, nullptr}};
  int bindings = 0;
  REALclassDefinition record = {};
  record.version = 12;
  record.name = "Test";
  record.superName = "Object";
  record.dataSize = 16;
  record.properties = properties;
  record.propertyCount = 1;
  record.methods = methods;
  record.methodCount = 2;
  record.events = events;
  record.eventCount = 2;
  record.bindings = &bindings;
  record.bindingCount = 4;
  record.constants = constants;
  record.constantCount = 3;
  record.mFlags = 0x4;
  record.sharedMethods = shared;
  record.sharedMethodCount = 1;
  record.reserved[0] = 0x1234;
  record.reserved[3] = 0x5678;

  RegisterClassRecord(&record, 9);

  EXPECT_EQ(record.version, 9);
  EXPECT_STREQ(record.name, "Test");
  EXPECT_STREQ(record.superName, "Object");
  EXPECT_EQ(record.dataSize, 16);
  EXPECT_EQ(record.bindings, nullptr);
  EXPECT_EQ(record.bindingCount, 0);
  EXPECT_EQ(record.mFlags, 0x4);
  EXPECT_EQ(record.reserved[0], 0x1234);  // words 25 to 28 are left as they were
  EXPECT_EQ(record.reserved[3], 0x5678);

  const auto* olderMethods = static_cast<const REALmethodDefinitionV9*>(record.methods);
  ASSERT_NE(olderMethods, nullptr);
  EXPECT_EQ(record.methodCount, 2);
  EXPECT_EQ(olderMethods[1].function, Fn2);
  EXPECT_EQ(olderMethods[1].setterFunction, Fn1);
  EXPECT_STREQ(olderMethods[1].declaration, "B() as boolean");
  EXPECT_EQ(olderMethods[1].mFlags, 0x8);

  const auto* olderShared = static_cast<const REALmethodDefinitionV9*>(record.sharedMethods);
  ASSERT_NE(olderShared, nullptr);
  EXPECT_EQ(olderShared[0].function, Fn2);

  const auto* olderProperties = static_cast<const REALpropertyV9*>(record.properties);
  ASSERT_NE(olderProperties, nullptr);
  EXPECT_STREQ(olderProperties[0].name, "P");
  EXPECT_EQ(record.sharedProperties, nullptr);

  // Events keep words 0 and 1; each source row's word 1 then points at its older row.
  const auto* olderEvents = static_cast<const REALeventV9*>(record.events);
  ASSERT_NE(olderEvents, nullptr);
  EXPECT_EQ(record.eventCount, 2);
  EXPECT_STREQ(olderEvents[0].declaration, "E1()");
  EXPECT_EQ(olderEvents[0].forSystemUse, 11);
  EXPECT_EQ(olderEvents[1].forSystemUse, 22);
  EXPECT_EQ(events[0].forSystemUse, reinterpret_cast<REALword>(&olderEvents[0]));
  EXPECT_EQ(events[1].forSystemUse, reinterpret_cast<REALword>(&olderEvents[1]));
  EXPECT_EQ(events[1].attributeCount, 2);

  // Constants keep words 0 to 2.
  const auto* olderConstants = static_cast<const REALconstantV9*>(record.constants);
  ASSERT_NE(olderConstants, nullptr);
  EXPECT_EQ(record.constantCount, 3);
  EXPECT_STREQ(olderConstants[2].declaration, "C3 = 3");
  EXPECT_EQ(olderConstants[2].reserved1, 7);
  EXPECT_EQ(olderConstants[2].reserved2, 8);

  // The host read the record through the older rows.
  ASSERT_EQ(host.registeredClasses().size(), 1u);
  const auto registered = host.registeredClasses().at(0);
  EXPECT_EQ(registered.version, 9);
  ASSERT_EQ(registered.methods.size(), 2u);
  EXPECT_EQ(registered.methods[0].declarationText, "A(x as integer) as picture");
  EXPECT_EQ(registered.methods[0].function, Fn1);
  EXPECT_EQ(registered.eventCount, 2);
  EXPECT_EQ(registered.constantCount, 3);

  // The older tables belong to the record for the life of the process; this one is ours.
  std::free(record.methods);
  std::free(record.sharedMethods);
  std::free(record.properties);
  std::free(record.events);
  std::free(record.constants);
}

TEST(RegisterClassRecord, CurrentLayoutRegistersTheRecordAsItIs) {
  qpxhost::Host host;
  gResolver = &qpxhost::Host::Resolve;
  REALmethodDefinition methods[1] = {{Fn1, nullptr, "A(x as double) as picture", 0x4, 0, nullptr}};
  REALclassDefinition record = {};
  record.name = "Test";
  record.methods = methods;
  record.methodCount = 1;
  RegisterClassRecord(&record, 11);
  EXPECT_EQ(record.version, 11);
  EXPECT_EQ(record.methods, methods);
  ASSERT_EQ(host.registeredClasses().size(), 1u);
  EXPECT_EQ(host.registeredClasses().at(0).version, 11);
  EXPECT_EQ(host.registeredClasses().at(0).methods.at(0).function, Fn1);
}

}  // namespace
