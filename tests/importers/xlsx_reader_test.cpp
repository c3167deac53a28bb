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

using testing::Members;
using testing::sheetXml;
using testing::TempDir;
using testing::throwsDocxError;
using Kind = DocxError::Kind;
using Texts = std::vector<std::vector<std::string>>;

const std::string kSheet1 = "xl/worksheets/sheet1.xml";
const std::string kShared = "xl/sharedStrings.xml";

const auto row = [](const std::string& cells) { return "<row>" + cells + "</row>"; };

// Writes `members` to a package and reads its cells' texts; `damaged` has its
// stored checksum broken, so that reading it fails only once its bytes are out.
Texts readPackage(const Members& members, const ImportLimits& limits = {},
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
  Texts texts;
  for (const auto& cells : XlsxReader::read(path, limits).rows) {
    auto& out = texts.emplace_back();
    for (const auto& cell : cells) out.push_back(cell.text());
  }
  return texts;
}

Texts readRows(const std::string& rows, const std::vector<std::string>& shared = {}) {
  Members members{{kSheet1, sheetXml(rows)}};
  if (!shared.empty()) members.emplace(kShared, testing::sharedStringsXml(shared));
  return readPackage(members);
}

TEST(XlsxReader, ExampleSheetGivesTwoByThreeTableInAFreshBlock) {
  TempDir dir;
  const std::string rows =
      R"(<row r="1"><c r="A1" t="s"><v>0</v></c><c r="B1" t="inlineStr"><is><t>Sales</t></is></c>)"
      R"(</row><row r="2"><c r="A2" t="s"><v>1</v></c><c r="C2"><v>1234.5</v></c></row>)";
  const auto result = testing::importXlsx(dir, rows, {"Region", "North"});
  EXPECT_EQ(testing::dump(result),
            "[Table 2×3]\n  | Region | Sales |  |\n  | North |  | 1234.5 |\n");
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
  for (const auto& [cell, text] : cases) {
    EXPECT_EQ(readRows(row(cell), {"Region", "North"}), Texts{{text}}) << cell;
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
      {"A", 0},       {"Z", 25}, {"AA", 26},     {"ZZ", 701}, {"AAA", 702},
      {"XFD", 16383}, {"", 0},   {"xfd", 16383}, {"aB", 27},
  };
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

TEST(XlsxPackage, SharedStringsAreOptionalAndTheFirstWorksheetByNumberIsRead) {
  const std::string shared = sheetXml(row(R"(<c t="s"><v>0</v></c><c><v>9</v></c>)"));
  const std::string doctype =
      R"(<!DOCTYPE sst [<!ENTITY e "expanded">]><sst><si><t>&e;</t></si></sst>)";
  EXPECT_EQ(readPackage({{kSheet1, shared}}), (Texts{{"", "9"}}));
  EXPECT_EQ(readPackage({{kSheet1, shared}, {kShared, doctype}}), (Texts{{"", "9"}}));
  const Members damaged{{kSheet1, shared}, {kShared, testing::sharedStringsXml({"one"})}};
  EXPECT_EQ(readPackage(damaged, {}, kShared), (Texts{{"", "9"}}));
  const auto sheet = [](const std::string& text) {
    return sheetXml(row("<c><v>" + text + "</v></c>"));
  };
  const Members oneAndTwo{{"xl/worksheets/sheet2.xml", sheet("two")}, {kSheet1, sheet("one")}};
  EXPECT_EQ(readPackage(oneAndTwo), (Texts{{"one"}}));
  EXPECT_EQ(readPackage({{"xl/worksheets/sheet3.xml", sheet("3")}}), (Texts{{"3"}}));
  // A damaged sheet1 counts as absent while looking for a sheet.
  EXPECT_EQ(readPackage(oneAndTwo, {}, kSheet1), (Texts{{"two"}}));
}

TEST(XlsxWorksheet, NoOrUnparsableWorksheetIsAnErrorNamingIt) {
  const auto fails = [](const std::string& part, const std::string& xml, Kind kind,
                        const ::testing::Matcher<std::string>& message, bool damaged = false) {
    const Members members{{part, xml}};
    EXPECT_THAT([&] { readPackage(members, {}, damaged ? part : ""); },
                throwsDocxError(kind, false, message))
        << xml;
  };
  const auto parse = [](const std::string& what) {
    return "Could not parse the document (" + what + ").";
  };
  const std::string sheet3 = "xl/worksheets/sheet3.xml";
  fails("xl/worksheets/sheet10.xml", sheetXml("<row/>"), Kind::missingEntry,
        "Archive is missing xl/worksheets/sheet1.xml \u2014 not a valid file.");
  fails(kSheet1, "<worksheet><sheetData><row><c><v>1</v></row>", Kind::parseFailed, parse(kSheet1));
  fails(sheet3, "<worksheet><sheetData>", Kind::parseFailed, parse(sheet3));
  const std::string entity = sheetXml(row(R"(<c t="str"><v>&e;</v></c>)"));
  fails(kSheet1, R"(<!DOCTYPE worksheet [<!ENTITY e "expanded">]>)" + entity, Kind::parseFailed,
        parse(kSheet1));
  fails(kSheet1, "<!DOCTYPE worksheet>" + entity, Kind::parseFailed, parse(kSheet1));
  fails(kSheet1, sheetXml(""), Kind::parseFailed, parse("worksheet has no rows"));
  fails(sheet3, "<worksheet/>", Kind::parseFailed, parse("worksheet has no rows"));
  // A damaged sheet1 that is the only sheet is an archive error.
  fails(kSheet1, sheetXml("<row/>"), Kind::unzipFailed,
        ::testing::StartsWith("Could not open archive: " + kSheet1 + ": "), true);
}

TEST(XlsxLimits, EachLimitStopsTheImportNamingTheMember) {
  const auto stops = [](const Members& members, const ImportLimits& limits,
                        const std::string& message) {
    EXPECT_THAT([&] { readPackage(members, limits); },
                throwsDocxError(Kind::unzipFailed, true, "Could not open archive: " + message));
  };
  const auto items = [](const char* limit) {
    return kSheet1 + ": more than " + limit +
           " paragraphs, runs and cells, the limit for one import";
  };
  // An optional part past a limit is an error, not an absence.
  stops(
      {{kSheet1, sheetXml(row("<c/>"))}, {kShared, "<sst>" + std::string(8 << 20, ' ') + "</sst>"}},
      {.memberBytes = 1 << 20}, kShared + " inflates to more than 1 MiB, the limit for one member");
  std::string repeated, shortRows;
  for (int i = 0; i < 100; ++i) repeated += R"(<c t="s"><v>0</v></c>)";
  stops({{kSheet1, sheetXml(row(repeated))},
         {kShared, testing::sharedStringsXml({std::string(64 << 10, 'x')})}},
        {.textBytes = 1 << 20},
        kSheet1 + ": the imported text exceeds 1 MiB, the limit for one import");
  // Each row is small; padding every row to the widest is not.
  for (int i = 0; i < 100; ++i) shortRows += row("<c><v>1</v></c>");
  stops({{kSheet1, sheetXml(row(R"(<c r="ALL1"/>)") + shortRows)}}, {.items = 2000}, items("2000"));
  // More column letters than a 64-bit index holds.
  stops({{kSheet1, sheetXml(row(R"(<c r="ZZZZZZZZZZZZZZZZZZZZZZZZ1"/>)"))}}, {}, items("8388608"));
}

}  // namespace
}  // namespace inkharbour
