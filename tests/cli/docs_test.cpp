// The documentation: every link of the README and the pages under docs/ leads to a file and
// heading that exist, docs/qpx.md names every command and option qpx offers, and every picture
// the pages show is exactly what the module and the emulated host make today.
#include <cctype>
#include <regex>

#include "cli_support.h"

namespace qpx {
namespace {

const fs::path kSource = QPX_SOURCE_DIR;

// The Markdown files whose links are checked.
std::vector<fs::path> DocumentationFiles() {
  std::vector<fs::path> files = {kSource / "README.md", kSource / "host" / "README.md"};
  for (const auto& entry : fs::recursive_directory_iterator(kSource / "docs")) {
    if (entry.path().extension() == ".md") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// The text of a Markdown file outside its fenced code blocks.
std::vector<std::string> ProseLines(const fs::path& file) {
  std::vector<std::string> prose;
  bool fenced = false;
  for (const std::string& line : Lines(ReadAll(file))) {
    if (line.rfind("```", 0) == 0) {
      fenced = !fenced;
      continue;
    }
    if (!fenced) prose.push_back(line);
  }
  return prose;
}

// The anchor a heading gets: lower case, punctuation other than hyphens dropped, spaces made
// hyphens.
std::string Anchor(const std::string& heading) {
  std::string anchor;
  for (unsigned char c : heading) {
    if (std::isalnum(c) || c == '-' || c == '_') {
      anchor += char(std::tolower(c));
    } else if (c == ' ') {
      anchor += '-';
    }
  }
  return anchor;
}

std::set<std::string> Anchors(const fs::path& file) {
  std::set<std::string> anchors;
  for (const std::string& line : ProseLines(file)) {
    const size_t hashes = line.find_first_not_of('#');
    if (hashes == 0 || hashes == std::string::npos || line[hashes] != ' ') continue;
    anchors.insert(Anchor(line.substr(hashes + 1)));
  }
  return anchors;
}

// Every link target of a file: Markdown links and images, and HTML img sources.
std::vector<std::string> LinkTargets(const fs::path& file) {
  static const std::regex link(R"(\]\(([^)\s]+)\))"), image(R"re(<img [^>]*src="([^"]+)")re");
  std::vector<std::string> targets;
  for (const std::string& line : ProseLines(file)) {
    for (const std::regex& pattern : {link, image}) {
      for (std::sregex_iterator it(line.begin(), line.end(), pattern), end; it != end; ++it) {
        targets.push_back((*it)[1]);
      }
    }
  }
  return targets;
}

TEST(DocsTest, EveryLinkLeadsToAFileAndHeadingThatExist) {
  int checked = 0;
  for (const fs::path& file : DocumentationFiles()) {
    for (const std::string& target : LinkTargets(file)) {
      if (target.rfind("http://", 0) == 0 || target.rfind("https://", 0) == 0) continue;
      SCOPED_TRACE(file.string() + ": " + target);
      const size_t hash = target.find('#');
      const std::string path = target.substr(0, hash);
      const fs::path linked = path.empty() ? file : (file.parent_path() / path).lexically_normal();
      ASSERT_TRUE(fs::exists(linked)) << "no such file";
      if (hash != std::string::npos) {
        EXPECT_TRUE(Anchors(linked).count(target.substr(hash + 1))) << "no such heading";
      }
      ++checked;
    }
  }
  EXPECT_GT(checked, 50);
}

TEST(DocsTest, TheReadmeLinksEveryPage) {
  const std::string readme = ReadAll(kSource / "README.md");
  for (const auto& entry : fs::recursive_directory_iterator(kSource / "docs")) {
    if (entry.path().extension() != ".md") continue;
    const std::string page = entry.path().lexically_relative(kSource).string();
    EXPECT_NE(readme.find("](" + page + ")"), std::string::npos) << page;
  }
}

// Words of `text` that start with "--" (options) or, under "Subcommands:", name a command.
std::set<std::string> OptionsIn(const std::string& help) {
  static const std::regex option(R"((^|[\s,])(--[a-z][a-z-]*))");
  std::set<std::string> options;
  for (std::sregex_iterator it(help.begin(), help.end(), option), end; it != end; ++it) {
    options.insert((*it)[2]);
  }
  return options;
}

std::vector<std::string> CommandsIn(const std::string& help) {
  std::vector<std::string> commands;
  bool listing = false;
  for (const std::string& line : Lines(help)) {
    if (line == "Subcommands:") {
      listing = true;
    } else if (listing && line.rfind("  ", 0) == 0 && line.size() > 2 && line[2] != ' ') {
      commands.push_back(line.substr(2, line.find(' ', 2) - 2));
    } else if (listing && !line.empty() && line[0] != ' ') {
      listing = false;
    }
  }
  return commands;
}

TEST_F(CliTest, TheQpxPageNamesEveryCommandAndOption) {
  const std::string page = ReadAll(kSource / "docs" / "qpx.md");
  const QpxRun top = Qpx({"--help"});
  ASSERT_EQ(top.exitCode, 0) << top.err;
  const std::vector<std::string> commands = CommandsIn(top.out);
  EXPECT_EQ(commands.size(), 8u) << top.out;
  for (const std::string& command : commands) {
    EXPECT_NE(page.find("## " + command), std::string::npos) << "no section on " << command;
    EXPECT_NE(page.find("qpx " + command + " "), std::string::npos) << command;
    const QpxRun help = Qpx({command, "--help"});
    ASSERT_EQ(help.exitCode, 0) << help.err;
    for (const std::string& option : OptionsIn(help.out)) {
      if (option == "--help") continue;
      EXPECT_NE(page.find("`" + option), std::string::npos) << command << " " << option;
    }
  }
}

// The pictures under docs/images/, each of which `qpx demo` writes.
std::vector<std::string> DocumentedPictures() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(kSource / "docs" / "images")) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

TEST_F(CliTest, TheDocumentationsPicturesAreWhatTheModuleMakesToday) {
  const QpxRun run = Qpx({"demo", "demo"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const std::vector<std::string> names = DocumentedPictures();
  EXPECT_GT(names.size(), 20u);
  for (const std::string& name : names) {
    EXPECT_TRUE(ReadAll(Path("demo/" + name)) == ReadAll(kSource / "docs" / "images" / name))
        << "docs/images/" << name << " differs from what qpx demo writes; "
        << "scripts/docs-images.sh writes it anew";
  }
}

TEST_F(CliTest, TheContactSheetLinksEachMethodsSectionToItsPage) {
  ASSERT_EQ(Qpx({"demo", "demo"}).exitCode, 0);
  const std::string sheet = ReadAll(Path("demo/index.html"));
  static const std::regex page(R"re(<h2>[^<]*<small><a href="([^"]+/([A-Za-z]+)\.md)")re");
  std::set<std::string> linked;
  for (std::sregex_iterator it(sheet.begin(), sheet.end(), page), end; it != end; ++it) {
    EXPECT_TRUE(fs::exists(fs::path(Path("demo")) / (*it)[1].str())) << (*it)[1];
    linked.insert((*it)[2]);
  }
  EXPECT_THAT(linked, ::testing::ElementsAre("BlurQPX", "DrawPictureFQPX", "ScaleImageAndMaskQPX",
                                             "ScaleQPX", "ScalingQPX"));
}

TEST(DocsTest, EveryPictureInDocsImagesIsShown) {
  std::set<std::string> shown;
  for (const fs::path& file : DocumentationFiles()) {
    for (const std::string& target : LinkTargets(file)) {
      shown.insert(fs::path(target).filename().string());
    }
  }
  for (const std::string& name : DocumentedPictures()) EXPECT_TRUE(shown.count(name)) << name;
}

}  // namespace
}  // namespace qpx
