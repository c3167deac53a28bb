// XlsxReader: a worksheet becomes one table of plain "Body" cells.
#include "importers/xlsx_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "importers/docx_error.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

using testing::throwsDocxError;

using testing::Members;
using testing::sheetXml;
using testing::TempDir;
using Texts = std::vector<std::vector<std::string>>;

const std::string kSheet1 = "xl/worksheets/sheet1.xml";
const std::string kShared = "xl/sharedStrings.xml";

std::string row(const std::string& cells) { return "<row>" + cells + "</row>"; }

Texts textsOf(const Table& table) {
  Texts texts;
  for (const auto& row : table.rows) {
    auto& out = texts.emplace_back();
    for (const auto& cell : row) out.push_back(cell.text());
  }
  return texts;
}

// Writes `members` to a package and reads it; `damaged` has its stored
// checksum broken, so that reading it fails only once its bytes are out.
Table readPackage(const Members& members, const ImportLimits& limits = {},
                  const std::string& damaged = "") {
  TempDir dir;
  const auto path = dir / "book.xlsx";
  testing::writePackage(path, members);
  if (!damaged.empty()) {
    // The name follows a local header's CRC by 16 bytes, a central header's by 30.
    std::string zip = testing::readFile(path);
    zip[zip.find(damaged) - 16] ^= 0x5A;
    zip[zip.rfind(damaged) - 30] ^= 0x5A;
    testing::writeFile(path, zip);
  }
  return XlsxReader::read(path, limits);
}

Texts readRows(const std::string& rows, const std::vector<std::string>& shared = {}) {
  Members members{{kSheet1, sheetXml(rows)}};
  if (!shared.empty()) members.emplace(kShared, testing::sharedStringsXml(shared));
  return textsOf(readPackage(members));
}

TEST(XlsxReader, ExampleSheetGivesTwoByThreeTableInAFreshBlock) {
  TempDir dir;
  const std::string rows =
      R"(<row r="1"><c r="A1" t="s"><v>0</v></c><c r="B1" t="inlineStr"><is><t>Sales</t></is></c>)"
      R"(</row><row r="2"><c r="A2" t="s"><v>1</v></c><c r="C2"><v>1234.5</v></c></row>)";
  const auto result = testing::importXlsx(dir, rows, {"Region", "North"});
  EXPECT_EQ(testing::dump(result),
            "[Table 2×3]\n  | Region | Sales |  |\n  | North |  | 1234.5 |\n");
  EXPECT_TRUE(result.footnotes.empty());
  const auto& table = std::get<Table>(result.blocks.at(0).kind);
  EXPECT_EQ(table.rows[1][0], TableCell{.paragraphs = {Paragraph::make("Body", "North")}});
  EXPECT_EQ(table.rows[1][1], TableCell{.paragraphs = {Paragraph::make("Body", "")}});
  const auto again = testing::importXlsx(dir, rows, {"Region", "North"});
  EXPECT_NE(again.blocks.at(0).id, result.blocks[0].id);
}

TEST(XlsxReader, CellValuesAreTakenAsStored) {
  const std::pair<std::string, std::string> cases[] = {
      {R"(<c t="s"><v>0</v></c>)", "Region"},
      {R"(<c t="s"><v>+1</v></c>)", "North"},
      {R"(<c t="s"><v>2</v></c>)", ""},
      {R"(<c t="s"><v>-1</v></c>)", ""},
      {R"(<c t="s"><v>+-1</v></c>)", ""},
      {R"(<c t="s"><v>1.0</v></c>)", ""},
      {R"(<c t="s"><v></v></c>)", ""},
      {R"(<c t="b"><v>1</v></c>)", "TRUE"},
      {R"(<c t="b"><v>0</v></c>)", "FALSE"},
      {R"(<c t="b"><v>true</v></c>)", "FALSE"},
      {R"(<c t="b"/>)", "FALSE"},
      {R"(<c s="3"><v>1.50E-3</v></c>)", "1.50E-3"},
      {R"(<c t="str"><f>A1&amp;"x"</f><v>Northx</v></c>)", "Northx"},
      {R"(<c><f>NOW()</f></c>)", ""},
      {R"(<c t="inlineStr"><is><r><t>Sa</t></r><r><rPr><b/></rPr><t>les </t></r></is></c>)",
       "Sales "},
      {R"(<c t="str"><t>stray</t></c>)", ""},
      {R"(<c>before<v>5</v>after</c>)", "5"},
  };
  std::string rows;
  for (const auto& [cell, expected] : cases) rows += row(cell);
  const auto texts = readRows(rows, {"Region", "North"});
  ASSERT_EQ(texts.size(), std::size(cases));
  for (std::size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(texts[i], std::vector<std::string>{cases[i].second}) << cases[i].first;
  }
}

TEST(XlsxReader, CellsArePlacedByColumnReferenceAndRowsPadded) {
  const std::pair<std::string, Texts> cases[] = {
      {row(R"(<c r="A1"><v>a</v></c><c r="B1"><v>b</v></c>)") + R"(<row r="2"/>)",
       {{"a", "b"}, {"", ""}}},
      {"<row/><row></row>", {{}, {}}},
      {row(R"(<c r="B1"><v>b</v></c><c><v>c</v></c><c r="e1"><v>e</v></c>)") +
           row("<c><v>a</v></c>"),
       {{"", "b", "c", "", "e"}, {"a", "", "", "", ""}}},
      // A reference at or before the cells so far appends, as does one not starting with
      // letters or under another prefix.
      {row(R"(<c r="C1"><v>c</v></c><c r="A1"><v>a</v></c><c r="$A$1"><v>x</v></c>)"
           R"(<c x:r="F1"><v>y</v></c>)"),
       {{"", "", "c", "a", "x", "y"}}},
      {R"(<row r="3"><c r="A3"><v>x</v></c></row><row r="9"><c r="A9"><v>y</v></c></row>)",
       {{"x"}, {"y"}}},
      {R"(<c><v>lost</v></c>)" + row("<c><v>kept</v></c>") + R"(<c><v>late</v></c>)", {{"kept"}}},
  };
  for (const auto& [rows, expected] : cases) {
    SCOPED_TRACE(rows);
    EXPECT_EQ(readRows(rows), expected);
  }
}

TEST(XlsxReader, ColumnLettersCountInBaseTwentySix) {
  const std::pair<const char*, std::int64_t> cases[] = {
      {"A", 0}, {"Z", 25}, {"AA", 26}, {"ZZ", 701}, {"AAA", 702}, {"XFD", 16383}, {"", 0},
      {"xfd", 16383}, {"aB", 27}};
  for (const auto& [letters, index] : cases) {
    EXPECT_EQ(XlsxReader::columnIndex(letters), index) << letters;
  }
}

TEST(XlsxSharedStrings, ItemsBecomePlainTexts) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"<sst><si><r><rPr><b/></rPr><t>Bold</t></r><r><t> text</t></r></si></sst>", {"Bold text"}},
      {"<sst><si><t>東</t><rPh><t>ヒガシ</t></rPh></si></sst>", {"東ヒガシ"}},
      {"<sst><si><t>a</t></si><si/><si><t/></si><si>stray<t>d</t></si></sst>", {"a", "", "", "d"}},
      {R"(<x:sst xmlns:x="urn:x"><x:si><x:t>p</x:t></x:si></x:sst>)", {"p"}},
      {"<sst><si><t>a</t></si><si><t>b</t></si><si><t>c", {"a", "b"}},
      {"garbage", {}},
  };
  for (const auto& [xml, expected] : cases) {
    EXPECT_EQ(XlsxReader::parseSharedStrings(xml), expected) << xml;
  }
}

TEST(XlsxSharedStrings, MissingOrUnreadablePartLeavesSharedCellsEmpty) {
  const std::string sheet = sheetXml(row(R"(<c t="s"><v>0</v></c><c><v>9</v></c>)"));
  const std::string doctype =
      R"(<!DOCTYPE sst [<!ENTITY e "expanded">]><sst><si><t>&e;</t></si></sst>)";
  EXPECT_EQ(textsOf(readPackage({{kSheet1, sheet}})), (Texts{{"", "9"}}));
  EXPECT_EQ(textsOf(readPackage({{kSheet1, sheet}, {kShared, doctype}})), (Texts{{"", "9"}}));
  const Members damaged{{kSheet1, sheet}, {kShared, testing::sharedStringsXml({"one"})}};
  EXPECT_EQ(textsOf(readPackage(damaged, {}, kShared)), (Texts{{"", "9"}}));
}

TEST(XlsxWorksheet, FirstWorksheetPartByNumberIsRead) {
  const auto sheet = [](const std::string& text) {
    return sheetXml(row("<c><v>" + text + "</v></c>"));
  };
  const std::string sheet2 = "xl/worksheets/sheet2.xml";
  const Members oneAndTwo{{sheet2, sheet("two")}, {kSheet1, sheet("one")}};
  EXPECT_EQ(textsOf(readPackage(oneAndTwo)), (Texts{{"one"}}));
  EXPECT_EQ(textsOf(readPackage({{"xl/worksheets/sheet3.xml", sheet("3")}})), (Texts{{"3"}}));
  // A damaged sheet1 counts as absent while looking for a sheet.
  EXPECT_EQ(textsOf(readPackage(oneAndTwo, {}, kSheet1)), (Texts{{"two"}}));
}

TEST(XlsxWorksheet, NoOrUnparsableWorksheetIsAnErrorNamingIt) {
  const std::string entity = sheetXml(row(R"(<c t="str"><v>&e;</v></c>)"));
  const std::string sheet3 = "xl/worksheets/sheet3.xml";
  const auto parse = [](const std::string& what) {
    return "Could not parse the document (" + what + ").";
  };
  const struct {
    Members members;
    DocxError::Kind kind;
    std::string message;
  } cases[] = {
      {{{"xl/worksheets/sheet10.xml", sheetXml("<row/>")}}, DocxError::Kind::missingEntry,
       "Archive is missing xl/worksheets/sheet1.xml \u2014 not a valid file."},
      {{{kSheet1, "<worksheet><sheetData><row><c><v>1</v></row>"}}, DocxError::Kind::parseFailed,
       parse(kSheet1)},
      {{{sheet3, "<worksheet><sheetData>"}}, DocxError::Kind::parseFailed, parse(sheet3)},
      {{{kSheet1, R"(<!DOCTYPE worksheet [<!ENTITY e "expanded">]>)" + entity}},
       DocxError::Kind::parseFailed, parse(kSheet1)},
      {{{kSheet1, "<!DOCTYPE worksheet>" + entity}}, DocxError::Kind::parseFailed, parse(kSheet1)},
      {{{kSheet1, sheetXml("")}}, DocxError::Kind::parseFailed, parse("worksheet has no rows")},
      {{{sheet3, "<worksheet/>"}}, DocxError::Kind::parseFailed, parse("worksheet has no rows")},
  };
  for (const auto& c : cases) {
    EXPECT_THAT([&] { readPackage(c.members); }, throwsDocxError(c.kind, false, c.message))
        << c.members.begin()->second;
  }
  // A damaged sheet1 that is the only sheet is an archive error.
  EXPECT_THAT([&] { readPackage({{kSheet1, sheetXml("<row/>")}}, {}, kSheet1); },
              throwsDocxError(DocxError::Kind::unzipFailed, false,
                              ::testing::StartsWith("Could not open archive: " + kSheet1 + ": ")));
}

TEST(XlsxLimits, EachLimitStopsTheImportNamingTheMember) {
  const std::string padding(8 << 20, ' ');
  std::string repeated;
  for (int i = 0; i < 100; ++i) repeated += R"(<c t="s"><v>0</v></c>)";
  std::string shortRows;
  for (int i = 0; i < 100; ++i) shortRows += row("<c><v>1</v></c>");
  const auto items = [](const char* limit) {
    return kSheet1 + ": more than " + limit +
           " paragraphs, runs and cells, the limit for one import";
  };
  const struct {
    const char* name;
    Members members;
    ImportLimits limits;
    std::string message;  // after "Could not open archive: "
  } cases[] = {
      // An optional part past a limit is an error, not an absence.
      {"oversized shared strings",
       {{kSheet1, sheetXml(row("<c/>"))}, {kShared, "<sst>" + padding + "</sst>"}},
       {.memberBytes = 1 << 20},
       kShared + " inflates to more than 1 MiB, the limit for one member"},
      {"a shared string repeated",
       {{kSheet1, sheetXml(row(repeated))},
        {kShared, testing::sharedStringsXml({std::string(64 << 10, 'x')})}},
       {.textBytes = 1 << 20},
       kSheet1 + ": the imported text exceeds 1 MiB, the limit for one import"},
      // Each row is small; padding every row to the widest is not.
      {"short rows padded to one wide row",
       {{kSheet1, sheetXml(row(R"(<c r="ALL1"/>)") + shortRows)}}, {.items = 2000}, items("2000")},
      {"more letters than a 64-bit index holds",
       {{kSheet1, sheetXml(row(R"(<c r="ZZZZZZZZZZZZZZZZZZZZZZZZ1"/>)"))}}, {}, items("8388608")},
  };
  for (const auto& c : cases) {
    EXPECT_THAT([&] { readPackage(c.members, c.limits); },
                throwsDocxError(DocxError::Kind::unzipFailed, true,
                                "Could not open archive: " + c.message))
        << c.name;
  }
}

}  // namespace
}  // namespace inkharbour
