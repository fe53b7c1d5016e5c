// Loading the module into the emulated host: version choice, flag words and registration.
#include <string>
#include <vector>

#include "host_fixture.h"

namespace {

using qpxhost::HostConfig;
using qpxtest::HostTest;
using ::testing::ElementsAre;

const std::vector<std::string> kDeclarations = {
    "DrawPictureFQPX(pic as picture, x as double, y as double, alpha as double = 1.0, yield as "
    "integer = 0) as boolean",
    "ScaleQPX(width as integer, height as integer, AntiAlias as boolean=false, YieldTicks as "
    "integer=0) as picture",
    "ScaleImageAndMaskQPX(width as integer, height as integer, AntiAlias as boolean=false, "
    "YieldTicks as integer=0) as picture",
    "ScalingQPX(mode as integer, width as integer, height as integer, yield as integer = 0) as "
    "picture",
    "BlurQPX(Radius as double, yield as integer = 0) as picture",
};

HostConfig Version(std::optional<double> version) {
  HostConfig config;
  config.version = version;
  return config;
}

std::vector<std::string> Declarations(const qpxhost::RegisteredClass& registered) {
  std::vector<std::string> out;
  for (const auto& method : registered.methods) out.push_back(method.declarationText);
  return out;
}

struct VersionCase {
  double hostVersion;
  int interfaceVersion;
};

class InterfaceVersion : public HostTest, public ::testing::WithParamInterface<VersionCase> {};

TEST_P(InterfaceVersion, ReportedAndWrittenIntoTheRecord) {
  auto& host = Boot(Version(GetParam().hostVersion));
  ASSERT_TRUE(host.reportedInterfaceVersion.has_value());
  EXPECT_EQ(*host.reportedInterfaceVersion, GetParam().interfaceVersion);
  ASSERT_EQ(host.registeredClasses().size(), 1u);
  const auto registered = host.registeredClasses().at(0);
  EXPECT_EQ(registered.version, GetParam().interfaceVersion);
  EXPECT_EQ(registered.name, "Picture");
  // Every layout, older rows included, carries the five methods exactly as declared.
  EXPECT_EQ(Declarations(registered), kDeclarations);
  for (const auto& method : registered.methods) EXPECT_NE(method.function, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Thresholds, InterfaceVersion,
                         ::testing::Values(VersionCase{2013.03, 12}, VersionCase{2013.02, 11},
                                           VersionCase{2013.0, 11}, VersionCase{2012.9, 10},
                                           VersionCase{2012.0, 10}, VersionCase{2011.9, 9}));

TEST_F(HostTest, FlagRuleAppliesFrom2010_029) {
  auto& host = Boot(Version(2010.029));
  ASSERT_EQ(host.registeredClasses().size(), 1u);
  EXPECT_EQ(host.registeredClasses()[0].flags, 0x4);
  for (const auto& method : qpxhost::RegisteredClass(host.registeredClasses().at(0)).methods)
    EXPECT_EQ(method.flags, 0x4);
}

TEST_F(HostTest, OlderHostsOnlyLoseTheFlagBits) {
  auto& host = Boot(Version(2010.028));
  ASSERT_EQ(host.registeredClasses().size(), 1u);
  EXPECT_EQ(host.registeredClasses()[0].flags, 0x0);
  for (const auto& method : qpxhost::RegisteredClass(host.registeredClasses().at(0)).methods)
    EXPECT_EQ(method.flags, 0x0);
}

TEST_F(HostTest, CurrentHostGetsFlag4) {
  auto& host = Boot(Version(2013.03));
  EXPECT_EQ(host.registeredClasses().at(0).flags, 0x4);
  for (const auto& method : qpxhost::RegisteredClass(host.registeredClasses().at(0)).methods)
    EXPECT_EQ(method.flags, 0x4);
}

TEST_F(HostTest, HostWithoutVersionServiceGetsOlderRows) {
  auto& host = Boot(Version(std::nullopt));
  EXPECT_EQ(host.reportedInterfaceVersion, 9);
  ASSERT_EQ(host.registeredClasses().size(), 1u);
  const auto registered = host.registeredClasses().at(0);
  EXPECT_EQ(registered.version, 9);
  EXPECT_EQ(Declarations(registered), kDeclarations);
  EXPECT_EQ(registered.flags, 0x0);
  EXPECT_EQ(registered.eventCount, 0);
  EXPECT_EQ(registered.constantCount, 0);
}

TEST_F(HostTest, EntryLooksUpEachStartServiceOnce) {
  auto& host = Boot();
  EXPECT_EQ(host.LookupCount("RegisterPluginVersion"), 1);
  EXPECT_EQ(host.LookupCount("REALGetRBVersion"), 1);
  EXPECT_EQ(host.LookupCount("PluginRegisterClassExtension"), 1);
}

TEST_F(HostTest, MissingRegistrationServiceLeavesTheClassUnregistered) {
  HostConfig config;
  config.unavailable = {"PluginRegisterClassExtension"};
  auto& host = Boot(config);
  EXPECT_EQ(host.reportedInterfaceVersion, 12);
  EXPECT_TRUE(host.registeredClasses().empty());
  EXPECT_EQ(host.LookupCount("PluginRegisterClassExtension"), 1);
}

TEST_F(HostTest, MissingRegistrationServiceOnOlderHostIsSilentToo) {
  HostConfig config = Version(2011.0);
  config.unavailable = {"PluginRegisterClassExtension"};
  auto& host = Boot(config);
  EXPECT_EQ(host.reportedInterfaceVersion, 9);
  EXPECT_TRUE(host.registeredClasses().empty());
}

TEST_F(HostTest, MissingVersionReportServiceStillRegisters) {
  HostConfig config;
  config.unavailable = {"RegisterPluginVersion"};
  auto& host = Boot(config);
  EXPECT_FALSE(host.reportedInterfaceVersion.has_value());
  ASSERT_EQ(host.registeredClasses().size(), 1u);
  EXPECT_EQ(host.registeredClasses()[0].version, 12);
}

TEST_F(HostTest, EachLoadStartsWithFreshModuleState) {
  // Two hosts in turn, each with its own fresh copy of the module.
  {
    qpxhost::Host first(Version(2011.0));
    first.LoadPlugin(QPX_PLUGIN_PATH);
    EXPECT_EQ(first.registeredClasses().at(0).version, 9);
  }
  auto& host = Boot(Version(2013.03));
  EXPECT_EQ(host.registeredClasses().at(0).version, 12);
  EXPECT_EQ(host.registeredClasses().at(0).methods.at(0).flags, 0x4);
}

TEST_F(HostTest, DeclarationsParseIntoTheCallSignatures) {
  auto& host = Boot();
  const auto blur = host.FindMethod("Picture", "BlurQPX");
  ASSERT_TRUE(blur);
  using qpxhost::ValueType;
  ASSERT_EQ(blur->declaration.parameters.size(), 2u);
  EXPECT_EQ(blur->declaration.parameters[0].type, ValueType::Double);
  EXPECT_EQ(blur->declaration.parameters[1].type, ValueType::Integer);
  EXPECT_EQ(blur->declaration.result, ValueType::Picture);
  const auto draw = host.FindMethod("Picture", "DrawPictureFQPX");
  ASSERT_TRUE(draw);
  EXPECT_EQ(draw->declaration.result, ValueType::Boolean);
  EXPECT_EQ(std::get<double>(*draw->declaration.parameters[3].defaultValue), 1.0);
}

}  // namespace
