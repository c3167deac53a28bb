#include "cli/merge_command.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/fixtures.h"

namespace inkharbour {
namespace {

using testing::readFile;
using testing::TempDir;
using testing::writeFile;

struct Run {
  int status;
  std::string out;
  std::string err;
};

Run merge(const cli::MergeRequest& request) {
  std::ostringstream out, err;
  const int status = cli::runMerge(request, out, err);
  return {status, out.str(), err.str()};
}

TEST(MergeCommand, TextFilesMergeBothSidesAndReportEachChange) {
  TempDir dir;
  writeFile(dir / "base.txt", "one\ntwo\nthree");
  writeFile(dir / "local.txt", "one\ntwo, edited here\nthree");
  writeFile(dir / "external.txt", "one\ntwo\nthree\nfour");
  const auto result = merge({.base = dir / "base.txt",
                             .local = dir / "local.txt",
                             .external = dir / "external.txt",
                             .output = dir / "merged.txt"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "localKept: Changed: two \u2192 two, edited here\nexternalEdit: Inserted: four\n");
  EXPECT_EQ(readFile(dir / "merged.txt"), "one\ntwo, edited here\nthree\nfour");
}

TEST(MergeCommand, ConflictExitsOneWithTheNoteInTheJsonReport) {
  TempDir dir;
  writeFile(dir / "base", "a\nb");
  writeFile(dir / "local", "a\nb mine");
  writeFile(dir / "external", "a\nb theirs");
  // Without extensions, as a merge driver's files come; --type says what they are.
  const auto result = merge({.base = dir / "base",
                             .local = dir / "local",
                             .external = dir / "external",
                             .output = dir / "local",
                             .kind = LinkKind::text,
                             .json = true});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.out.find("\"kind\" : \"conflict\""), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("\"localText\" : \"b mine\""), std::string::npos);
  EXPECT_NE(result.out.find("\"paragraphIndex\" : 1"), std::string::npos);
  EXPECT_EQ(readFile(dir / "local"), "a\nb theirs");
}

TEST(MergeCommand, WordOutputReadsBackAsTheMergedStory) {
  TempDir dir;
  const auto body = [](const std::string& second) {
    return "<w:p><w:r><w:t>Title</w:t></w:r></w:p><w:p><w:r><w:rPr><w:b/></w:rPr><w:t>" + second +
           "</w:t></w:r></w:p>";
  };
  for (const auto& [name, text] :
       {std::pair{"base", "old"}, {"local", "old"}, {"external", "new"}}) {
    testing::writePackage(dir / (std::string(name) + ".docx"),
                          {{"word/document.xml", testing::documentXml(body(text))}});
  }
  const auto result = merge({.base = dir / "base.docx",
                             .local = dir / "local.docx",
                             .external = dir / "external.docx",
                             .output = dir / "out.docx"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(testing::dump(DocxReader::read(dir / "out.docx", {})),
            "[Body] \u00abTitle\u00bb\n[Body] B\u00abnew\u00bb\n");
}

TEST(MergeCommand, UnreadableInputOrWorkbookOutputIsAnErrorNamingTheFile) {
  TempDir dir;
  writeFile(dir / "a.txt", "x");
  auto result =
      merge({.base = dir / "a.txt", .local = dir / "missing.docx", .external = dir / "a.txt"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, (dir / "missing.docx").string() +
                            ": The file \u201cmissing.docx\u201d couldn\u2019t be opened because "
                            "there is no such file.\n");
  EXPECT_EQ(result.out, "");
  // Plain texts are merged as lines, and fail the same way.
  writeFile(dir / "bad.txt", "\xC0\xAF");
  result = merge({.base = dir / "a.txt", .local = dir / "a.txt", .external = dir / "bad.txt"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, (dir / "bad.txt").string() +
                            ": The file \u201cbad.txt\u201d couldn\u2019t be opened using text "
                            "encoding Unicode (UTF-8).\n");

  result = merge({.base = dir / "a.txt",
                  .local = dir / "a.txt",
                  .external = dir / "a.txt",
                  .output = dir / "out.xlsx"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "Workbooks are read only: write the merge to a .docx or a text file.\n");
}

}  // namespace
}  // namespace inkharbour
