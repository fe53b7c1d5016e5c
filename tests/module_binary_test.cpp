// The built module exports REALPluginMain only and needs nothing beyond the C library, libm
// and the dynamic loader.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string Run(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return output;
  char chunk[4096];
  size_t n;
  while ((n = fread(chunk, 1, sizeof(chunk), pipe)) > 0) output.append(chunk, n);
  EXPECT_EQ(pclose(pipe), 0) << command;
  return output;
}

// Names of the dynamic symbols the library defines.
std::vector<std::string> DefinedDynamicSymbols(const std::string& library) {
  std::vector<std::string> names;
  std::istringstream lines(Run("readelf -W --dyn-syms '" + library + "'"));
  // "   Num:    Value          Size Type    Bind   Vis      Ndx Name"
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string num, value, size, type, bind, vis, ndx, name;
    if (!(fields >> num >> value >> size >> type >> bind >> vis >> ndx >> name)) continue;
    if (num.empty() || !std::isdigit(static_cast<unsigned char>(num[0])) || ndx == "UND" ||
        type == "SECTION")
      continue;
    if (auto at = name.find('@'); at != std::string::npos) name.resize(at);
    names.push_back(name);
  }
  return names;
}

std::vector<std::string> NeededLibraries(const std::string& library) {
  std::vector<std::string> names;
  std::istringstream lines(Run("readelf -W -d '" + library + "'"));
  const std::string marker = "Shared library: [";
  std::string line;
  while (std::getline(lines, line)) {
    const size_t at = line.find(marker);
    if (line.find("(NEEDED)") == std::string::npos || at == std::string::npos) continue;
    const size_t begin = at + marker.size();
    names.push_back(line.substr(begin, line.find(']', begin) - begin));
  }
  return names;
}

TEST(ModuleBinary, ExportsOnlyREALPluginMain) {
  EXPECT_THAT(DefinedDynamicSymbols(QPX_PLUGIN_PATH), ::testing::ElementsAre("REALPluginMain"));
}

TEST(ModuleBinary, NeedsOnlyTheCLibraryLibmAndTheLoader) {
#ifdef QPX_SANITIZED
  GTEST_SKIP() << "a sanitizer build links the sanitizer runtimes";
#endif
  const std::vector<std::string> needed = NeededLibraries(QPX_PLUGIN_PATH);
  EXPECT_FALSE(needed.empty());
  for (const std::string& name : needed) {
    EXPECT_TRUE(name.rfind("libc.so", 0) == 0 || name.rfind("libm.so", 0) == 0 ||
                name.rfind("ld-linux", 0) == 0)
        << "unexpected NEEDED entry " << name;
  }
}

}  // namespace
