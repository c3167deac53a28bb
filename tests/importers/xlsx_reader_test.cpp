// XlsxReader: a worksheet becomes one table of plain "Body" cells.
#include "importers/xlsx_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "importers/docx_error.h"
#include "importers/docx_reader.h"
#include "support/fixtures.h"

namespace inkharbour {
namespace {

using ::testing::HasSubstr;
using testing::Members;
using ::testing::StartsWith;
using testing::TempDir;

using Texts = std::vector<std::vector<std::string>>;

constexpr const char* kSheet1 = "xl/worksheets/sheet1.xml";
constexpr const char* kSharedStrings = "xl/sharedStrings.xml";

template <typename Action>
std::optional<DocxError> docxErrorFrom(Action&& action) {
  try {
    action();
  } catch (const DocxError& error) {
    return error;
  }
  return std::nullopt;
}

Texts textsOf(const Table& table) {
  Texts texts;
  for (const auto& row : table.rows) {
    auto& out = texts.emplace_back();
    for (const auto& cell : row) out.push_back(cell.text());
  }
  return texts;
}

std::string row(const std::string& cells) {
  return "<row>" + cells + "</row>";
}

Table readPackage(const TempDir& dir, const Members& members, const ImportLimits& limits = {}) {
  const auto path = dir / "book.xlsx";
  testing::writePackage(path, members);
  return XlsxReader::read(path, limits);
}

Table readSheet(const TempDir& dir, const std::string& rows,
                const std::vector<std::string>& sharedStrings = {}) {
  Members members{{kSheet1, testing::sheetXml(rows)}};
  if (!sharedStrings.empty()) {
    members.emplace(kSharedStrings, testing::sharedStringsXml(sharedStrings));
  }
  return readPackage(dir, members);
}

// --- Damaging a package on disk --------------------------------------------

std::uint32_t le(const std::string& bytes, std::size_t at, int width) {
  std::uint32_t value = 0;
  for (int i = width - 1; i >= 0; --i) {
    value = (value << 8) | static_cast<unsigned char>(bytes.at(at + static_cast<std::size_t>(i)));
  }
  return value;
}

// Breaks the stored checksum of `member`, so that reading it fails only once
// all of its bytes have come out.
void breakChecksum(const std::filesystem::path& archive, const std::string& member) {
  std::string zip = testing::readFile(archive);
  const auto end = zip.rfind(std::string("PK\x05\x06", 4));
  ASSERT_NE(end, std::string::npos);
  std::size_t at = le(zip, end + 16, 4);
  for (std::uint32_t i = 0, count = le(zip, end + 10, 2); i < count; ++i) {
    const std::size_t nameLength = le(zip, at + 28, 2);
    const std::size_t next = at + 46 + nameLength + le(zip, at + 30, 2) + le(zip, at + 32, 2);
    if (zip.substr(at + 46, nameLength) == member) {
      const std::size_t local = le(zip, at + 42, 4);
      zip[at + 16] = static_cast<char>(zip[at + 16] ^ 0x5A);
      zip[local + 14] = static_cast<char>(zip[local + 14] ^ 0x5A);
      testing::writeFile(archive, zip);
      return;
    }
    at = next;
  }
  FAIL() << member << " not found in " << archive;
}

// --- The example sheet ----------------------------------------------------

TEST(XlsxReader, ExampleSheetGivesTwoByThreeTable) {
  TempDir dir;
  const auto result =
      testing::importXlsx(dir,
                          R"(<row r="1"><c r="A1" t="s"><v>0</v></c>)"
                          R"(<c r="B1" t="inlineStr"><is><t>Sales</t></is></c></row>)"
                          R"(<row r="2"><c r="A2" t="s"><v>1</v></c>)"
                          R"(<c r="C2"><v>1234.5</v></c></row>)",
                          {"Region", "North"});

  EXPECT_EQ(testing::dump(result),
            "[Table 2\u00d73]\n"
            "  | Region | Sales |  |\n"
            "  | North |  | 1234.5 |\n");
  EXPECT_TRUE(result.footnotes.empty());
}

TEST(XlsxReader, CellsAreSingleBodyParagraphsWithOnePlainRunOrNone) {
  TempDir dir;
  const auto table = readSheet(dir, row(R"(<c r="A1" t="b"><v>1</v></c><c r="C1"><v>7</v></c>)") +
                                        row(R"(<c r="A2"><v>x</v></c>)"));

  const TableCell empty{.paragraphs = {Paragraph{.styleName = "Body", .runs = {}}}};
  const auto plain = [](std::string text) {
    return TableCell{
        .paragraphs = {Paragraph{.styleName = "Body", .runs = {TextRun{.text = std::move(text)}}}}};
  };
  const Table expected{.rows = {{plain("TRUE"), empty, plain("7")}, {plain("x"), empty, empty}}};
  EXPECT_EQ(table, expected);
}

TEST(XlsxReader, DocxReaderWrapsTheTableInOneFreshBlock) {
  TempDir dir;
  const auto path = dir / "Figures.XLSX";
  testing::writePackage(path, {{kSheet1, testing::sheetXml(row("<c><v>1</v></c>"))}});

  const auto first = DocxReader::read(path, StyleMap{});
  const auto second = DocxReader::read(path, StyleMap{});

  ASSERT_EQ(first.blocks.size(), 1u);
  ASSERT_EQ(second.blocks.size(), 1u);
  EXPECT_TRUE(std::holds_alternative<Table>(first.blocks[0].kind));
  EXPECT_EQ(first.blocks[0].kind, second.blocks[0].kind);
  EXPECT_NE(first.blocks[0].id, second.blocks[0].id);
  EXPECT_TRUE(first.footnotes.empty());
}

// --- Cell values ------------------------------------------------------------

struct CellCase {
  const char* name;
  std::string cell;  // one <c> element, placed alone in a row
  std::string expected;
};

TEST(XlsxCellValue, ValuesAreTakenAsStored) {
  const std::vector<std::string> shared = {"Region", "North", "  spaced  "};
  const std::vector<CellCase> cases = {
      {"shared string 0", R"(<c t="s"><v>0</v></c>)", "Region"},
      {"last shared string, spaces kept", R"(<c t="s"><v>2</v></c>)", "  spaced  "},
      {"shared index with plus sign", R"(<c t="s"><v>+1</v></c>)", "North"},
      {"shared index with leading zero", R"(<c t="s"><v>01</v></c>)", "North"},
      {"shared index at the end", R"(<c t="s"><v>3</v></c>)", ""},
      {"shared index far beyond the end", R"(<c t="s"><v>99999999999999999999</v></c>)", ""},
      {"negative shared index", R"(<c t="s"><v>-1</v></c>)", ""},
      {"fractional shared index", R"(<c t="s"><v>1.0</v></c>)", ""},
      {"shared index with blanks", R"(<c t="s"><v> 1</v></c>)", ""},
      {"shared index with two signs", R"(<c t="s"><v>+-1</v></c>)", ""},
      {"zero with two signs", R"(<c t="s"><v>+-0</v></c>)", ""},
      {"minus zero", R"(<c t="s"><v>-0</v></c>)", "Region"},
      {"shared index that is a word", R"(<c t="s"><v>one</v></c>)", ""},
      {"empty shared index", R"(<c t="s"><v></v></c>)", ""},
      {"shared cell without value", R"(<c t="s"/>)", ""},
      {"boolean 1", R"(<c t="b"><v>1</v></c>)", "TRUE"},
      {"boolean 0", R"(<c t="b"><v>0</v></c>)", "FALSE"},
      {"boolean spelled true", R"(<c t="b"><v>true</v></c>)", "FALSE"},
      {"boolean 2", R"(<c t="b"><v>2</v></c>)", "FALSE"},
      {"boolean with blank", R"(<c t="b"><v> 1</v></c>)", "FALSE"},
      {"boolean without value", R"(<c t="b"/>)", "FALSE"},
      {"number without type", R"(<c><v>1234.5</v></c>)", "1234.5"},
      {"number typed n", R"(<c t="n"><v>1.5E-3</v></c>)", "1.5E-3"},
      {"date as serial number", R"(<c s="3"><v>45292</v></c>)", "45292"},
      {"ISO date typed d", R"(<c t="d"><v>2024-01-01T00:00:00</v></c>)", "2024-01-01T00:00:00"},
      {"formula string result", R"(<c t="str"><f>A1&amp;"x"</f><v>Northx</v></c>)", "Northx"},
      {"formula number result", R"(<c><f>SUM(1,2)</f><v>3</v></c>)", "3"},
      {"formula without cached value", R"(<c><f>NOW()</f></c>)", ""},
      {"error value", R"(<c t="e"><v>#DIV/0!</v></c>)", "#DIV/0!"},
      {"entities decoded", R"(<c t="str"><v>A &amp; B &lt;C&gt;</v></c>)", "A & B <C>"},
      {"inline string", R"(<c t="inlineStr"><is><t>Sales</t></is></c>)", "Sales"},
      {"inline rich text concatenated",
       R"(<c t="inlineStr"><is><r><t>Sa</t></r><r><rPr><b/></rPr><t xml:space="preserve">les </t></r></is></c>)",
       "Sales "},
      {"t outside an inline string ignored", R"(<c t="str"><t>stray</t></c>)", ""},
      {"characters outside v ignored", R"(<c>before<v>5</v>after</c>)", "5"},
  };

  std::string rows;
  for (const auto& c : cases) rows += row(c.cell);
  TempDir dir;
  const auto texts = textsOf(readSheet(dir, rows, shared));

  ASSERT_EQ(texts.size(), cases.size());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].name);
    ASSERT_FALSE(texts[i].empty());
    EXPECT_EQ(texts[i][0], cases[i].expected);
  }
}

// --- Placing cells in rows ----------------------------------------------------

struct ShapeCase {
  const char* name;
  std::string rows;
  Texts expected;
};

TEST(XlsxRowShape, CellsArePlacedByReferenceAndRowsPadded) {
  const std::vector<ShapeCase> cases = {
      {"short rows padded at the end",
       row("<c><v>a</v></c><c><v>b</v></c><c><v>c</v></c>") + row("<c><v>d</v></c>"),
       {{"a", "b", "c"}, {"d", "", ""}}},
      {"empty row element is a row of empty cells",
       row(R"(<c r="A1"><v>a</v></c><c r="B1"><v>b</v></c>)") + R"(<row r="2"/>)" +
           row(R"(<c r="A3"><v>c</v></c>)"),
       {{"a", "b"}, {"", ""}, {"c", ""}}},
      {"a sheet of empty rows", "<row/><row></row>", {{}, {}}},
      {"cells without references follow one another",
       row("<c><v>1</v></c><c><v>2</v></c><c><v>3</v></c>"),
       {{"1", "2", "3"}}},
      {"a reference skips columns", row(R"(<c r="C1"><v>x</v></c>)"), {{"", "", "x"}}},
      {"lower-case reference", row(R"(<c r="c7"><v>x</v></c>)"), {{"", "", "x"}}},
      {"cell without reference follows a referenced one",
       row(R"(<c r="B1"><v>b</v></c><c><v>c</v></c><c r="E1"><v>e</v></c>)"),
       {{"", "b", "c", "", "e"}}},
      {"lower reference than the cells so far appends",
       row(R"(<c r="C1"><v>c</v></c><c r="A1"><v>a</v></c>)"),
       {{"", "", "c", "a"}}},
      {"repeated reference appends",
       row(R"(<c r="A1"><v>1</v></c><c r="A1"><v>2</v></c>)"),
       {{"1", "2"}}},
      {"reference not starting with letters counts as column A",
       row(R"(<c r="B1"><v>b</v></c><c r="$D$1"><v>d</v></c>)"),
       {{"", "b", "d"}}},
      {"row numbers are not consulted",
       R"(<row r="3"><c r="A3"><v>x</v></c></row><row r="9"><c r="A9"><v>y</v></c></row>)",
       {{"x"}, {"y"}}},
      {"each row starts again at column A",
       row(R"(<c r="C1"><v>c</v></c>)") + row("<c><v>a</v></c>"),
       {{"", "", "c"}, {"a", "", ""}}},
      {"prefixed element names",
       R"(<x:row><x:c r="B1" t="inlineStr"><x:is><x:t>b</x:t></x:is></x:c><x:c><x:v>c</x:v></x:c></x:row>)",
       {{"", "b", "c"}}},
      {"prefixed reference attribute is no reference",
       row(R"(<c><v>a</v></c><c x:r="D1"><v>d</v></c>)"),
       {{"a", "d"}}},
      {"a row inside a row ends twice",
       R"(<row><c><v>a</v></c><row><c><v>b</v></c></row><c><v>c</v></c></row>)",
       {{"b", ""}, {"b", "c"}}},
      {"a cell outside any row is dropped",
       R"(<c><v>lost</v></c>)" + row("<c><v>kept</v></c>") + R"(<c><v>late</v></c>)",
       {{"kept"}}},
  };

  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    EXPECT_EQ(textsOf(readSheet(dir, c.rows)), c.expected);
  }
}

TEST(XlsxColumnIndex, LettersCountInBaseTwentySix) {
  const std::vector<std::pair<std::string, std::int64_t>> cases = {
      {"A", 0},   {"B", 1},   {"Z", 25},   {"AA", 26},     {"AB", 27},
      {"AZ", 51}, {"BA", 52}, {"ZZ", 701}, {"AAA", 702},   {"XFD", 16383},
      {"", 0},    {"a", 0},   {"ab", 27},  {"xfd", 16383}, {"aB", 27},
  };
  for (const auto& [letters, expected] : cases) {
    EXPECT_EQ(XlsxReader::columnIndex(letters), expected) << '"' << letters << '"';
  }
}

// --- Shared strings ---------------------------------------------------------

TEST(XlsxSharedStrings, ItemsBecomePlainTexts) {
  const struct {
    const char* name;
    std::string xml;
    std::vector<std::string> expected;
  } cases[] = {
      {"plain items", "<sst><si><t>a</t></si><si><t>b</t></si></sst>", {"a", "b"}},
      {"rich-text runs concatenated",
       R"(<sst><si><r><rPr><b/></rPr><t>Bold</t></r><r><t xml:space="preserve"> text</t></r></si></sst>)",
       {"Bold text"}},
      {"phonetic guide included",
       R"(<sst><si><t>東京</t><rPh sb="0" eb="2"><t>トウキョウ</t></rPh><phoneticPr fontId="1"/></si></sst>)",
       {"東京トウキョウ"}},
      {"empty items keep their places",
       "<sst><si><t>a</t></si><si/><si><t/></si><si><t>d</t></si></sst>",
       {"a", "", "", "d"}},
      {"entities decoded", "<sst><si><t>R&amp;D &#x263A;</t></si></sst>", {"R&D \u263A"}},
      {"text outside t ignored", "<sst><si>stray<t>a</t>more</si></sst>", {"a"}},
      {"prefixed names", R"(<x:sst xmlns:x="urn:x"><x:si><x:t>p</x:t></x:si></x:sst>)", {"p"}},
      {"items before a break are kept",
       "<sst><si><t>a</t></si><si><t>b</t></si><si><t>c",
       {"a", "b"}},
      {"not XML", "garbage", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(XlsxReader::parseSharedStrings(c.xml), c.expected);
  }
}

TEST(XlsxSharedStrings, MissingOrUnreadablePartLeavesSharedCellsEmpty) {
  const std::string cells = row(R"(<c t="s"><v>0</v></c><c t="s"><v>1</v></c><c><v>9</v></c>)");
  const struct {
    const char* name;
    std::optional<std::string> sharedStrings;
    std::vector<std::string> expected;
  } cases[] = {
      {"part missing", std::nullopt, {"", "", "9"}},
      {"part not XML", "not xml at all", {"", "", "9"}},
      {"part cut off after one item", "<sst><si><t>first</t></si><si><t>sec", {"first", "", "9"}},
      {"part declaring a document type",
       R"(<!DOCTYPE sst [<!ENTITY e "expanded">]><sst><si><t>&e;</t></si><si><t>b</t></si></sst>)",
       {"", "", "9"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    Members members{{kSheet1, testing::sheetXml(cells)}};
    if (c.sharedStrings) members.emplace(kSharedStrings, *c.sharedStrings);
    const auto texts = textsOf(readPackage(dir, members));
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_EQ(texts[0], c.expected);
  }
}

TEST(XlsxSharedStrings, DamagedPartIsNoError) {
  TempDir dir;
  const auto path = dir / "book.xlsx";
  testing::writePackage(
      path, {{kSheet1, testing::sheetXml(row(R"(<c t="s"><v>0</v></c><c><v>2</v></c>)"))},
             {kSharedStrings, testing::sharedStringsXml({"one"})}});
  breakChecksum(path, kSharedStrings);

  EXPECT_EQ(textsOf(XlsxReader::read(path)), (Texts{{"", "2"}}));
}

// --- Which worksheet, and when there is none --------------------------------

TEST(XlsxWorksheetChoice, FirstWorksheetPartByNumberIsRead) {
  const auto sheet = [](const std::string& text) {
    return testing::sheetXml(row(R"(<c t="inlineStr"><is><t>)" + text + "</t></is></c>"));
  };
  const struct {
    const char* name;
    Members members;
    std::string expected;
  } cases[] = {
      {"sheet1 before sheet2",
       {{"xl/worksheets/sheet2.xml", sheet("two")}, {kSheet1, sheet("one")}},
       "one"},
      {"only sheet3", {{"xl/worksheets/sheet3.xml", sheet("three")}}, "three"},
      {"lowest number wins",
       {{"xl/worksheets/sheet9.xml", sheet("nine")}, {"xl/worksheets/sheet5.xml", sheet("five")}},
       "five"},
      {"workbook order not consulted",
       {{"xl/workbook.xml",
         R"(<workbook><sheets><sheet name="Last" sheetId="2" r:id="rId2"/><sheet name="First" sheetId="1" r:id="rId1"/></sheets></workbook>)"},
        {"xl/worksheets/sheet4.xml", sheet("four")},
        {"xl/worksheets/sheet2.xml", sheet("two")}},
       "two"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    EXPECT_EQ(textsOf(readPackage(dir, c.members)), (Texts{{c.expected}}));
  }
}

TEST(XlsxWorksheetChoice, NoWorksheetPartIsAMissingFirstSheet) {
  const std::string message =
      "Archive is missing xl/worksheets/sheet1.xml \u2014 not a valid file.";
  const auto good = testing::sheetXml(row("<c><v>1</v></c>"));
  const struct {
    const char* name;
    std::optional<Members> package;  // none: `bytes` are written as they are
    std::string bytes;
  } cases[] = {
      {"sheets only beyond sheet9", Members{{"xl/worksheets/sheet10.xml", good}}, ""},
      {"no worksheets at all", Members{{"xl/workbook.xml", "<workbook/>"}}, ""},
      {"worksheet under another folder", Members{{"xl/sheet1.xml", good}}, ""},
      {"plain text file", std::nullopt, "Region,Sales\nNorth,1234.5\n"},
      {"empty file", std::nullopt, ""},
      {"truncated ZIP header", std::nullopt, std::string("PK\x03\x04\x14\x00", 6)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const auto path = dir / "book.xlsx";
    if (c.package) {
      testing::writePackage(path, *c.package);
    } else {
      testing::writeFile(path, c.bytes);
    }
    const auto error = docxErrorFrom([&] { DocxReader::read(path, StyleMap{}); });
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->kind(), DocxError::Kind::missingEntry);
    EXPECT_EQ(error->payload(), kSheet1);
    EXPECT_STREQ(error->what(), message.c_str());
  }
}

TEST(XlsxWorksheetChoice, AbsentFileIsAMissingFirstSheet) {
  TempDir dir;
  const auto error = docxErrorFrom([&] { XlsxReader::read(dir / "nowhere.xlsx"); });
  ASSERT_TRUE(error.has_value());
  EXPECT_STREQ(error->what(),
               "Archive is missing xl/worksheets/sheet1.xml \u2014 not a valid file.");
}

TEST(XlsxWorksheetChoice, DamagedWorksheetIsAnArchiveError) {
  TempDir dir;
  const auto path = dir / "book.xlsx";
  testing::writePackage(path, {{kSheet1, testing::sheetXml(row("<c><v>1</v></c>"))}});
  breakChecksum(path, kSheet1);

  const auto error = docxErrorFrom([&] { XlsxReader::read(path); });
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->kind(), DocxError::Kind::unzipFailed);
  EXPECT_FALSE(error->isLimit());
  EXPECT_THAT(error->what(), StartsWith("Could not open archive: "));
}

TEST(XlsxWorksheetChoice, DamagedSheet1CountsAsAbsentWhileProbing) {
  TempDir dir;
  const auto path = dir / "book.xlsx";
  testing::writePackage(
      path, {{kSheet1, testing::sheetXml(row("<c><v>one</v></c>"))},
             {"xl/worksheets/sheet2.xml", testing::sheetXml(row("<c><v>two</v></c>"))}});
  breakChecksum(path, kSheet1);

  EXPECT_EQ(textsOf(XlsxReader::read(path)), (Texts{{"two"}}));
}

// --- Worksheets that cannot be parsed ---------------------------------------

TEST(XlsxParseFailure, MessagesNameTheChosenPart) {
  const struct {
    const char* name;
    Members members;
    std::string message;
  } cases[] = {
      {"malformed sheet1",
       {{kSheet1, "<worksheet><sheetData><row><c><v>1</v></row>"}},
       "Could not parse the document (xl/worksheets/sheet1.xml)."},
      {"rows then a broken end",
       {{kSheet1, testing::sheetXml(row("<c><v>1</v></c>")) + "<trailing"}},
       "Could not parse the document (xl/worksheets/sheet1.xml)."},
      {"empty sheet1", {{kSheet1, ""}}, "Could not parse the document (xl/worksheets/sheet1.xml)."},
      {"malformed sheet3 as the only sheet",
       {{"xl/worksheets/sheet3.xml", "<worksheet><sheetData>"}},
       "Could not parse the document (xl/worksheets/sheet3.xml)."},
      {"no rows",
       {{kSheet1, testing::sheetXml("")}},
       "Could not parse the document (worksheet has no rows)."},
      {"no sheetData",
       {{kSheet1, "<worksheet/>"}},
       "Could not parse the document (worksheet has no rows)."},
      {"no rows in sheet3",
       {{"xl/worksheets/sheet3.xml", testing::sheetXml("")}},
       "Could not parse the document (worksheet has no rows)."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const auto error = docxErrorFrom([&] { readPackage(dir, c.members); });
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->kind(), DocxError::Kind::parseFailed);
    EXPECT_FALSE(error->isLimit());
    EXPECT_EQ(error->what(), c.message);
  }
}

TEST(XlsxParseFailure, DocumentTypeDeclarationIsRefused) {
  const std::string rows = row(R"(<c t="str"><v>&e;</v></c>)");
  const char* const doctypes[] = {
      R"(<!DOCTYPE worksheet [<!ENTITY e "expanded">]>)",
      // Each level multiplies by ten: expanding it would build 10^9 characters.
      R"(<!DOCTYPE worksheet [<!ENTITY a "aaaaaaaaaa"><!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;">)"
      R"(<!ENTITY c "&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;"><!ENTITY d "&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;">)"
      R"(<!ENTITY f "&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;"><!ENTITY g "&f;&f;&f;&f;&f;&f;&f;&f;&f;&f;">)"
      R"(<!ENTITY h "&g;&g;&g;&g;&g;&g;&g;&g;&g;&g;"><!ENTITY i "&h;&h;&h;&h;&h;&h;&h;&h;&h;&h;">)"
      R"(<!ENTITY e "&i;&i;&i;&i;&i;&i;&i;&i;&i;&i;">]>)",
      R"(<!DOCTYPE worksheet [<!ENTITY e SYSTEM "file:///etc/hostname">]>)",
      R"(<!DOCTYPE worksheet>)",
  };
  for (const char* doctype : doctypes) {
    SCOPED_TRACE(doctype);
    TempDir dir;
    const auto error = docxErrorFrom([&] {
      readPackage(dir, {{kSheet1, std::string(doctype) + testing::sheetXml(rows)}});
    });
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->kind(), DocxError::Kind::parseFailed);
    EXPECT_STREQ(error->what(), "Could not parse the document (xl/worksheets/sheet1.xml).");
  }
}

// --- Hostile workbooks ------------------------------------------------------

void expectLimit(const std::optional<DocxError>& error, const std::string& member,
                 const std::string& limit) {
  ASSERT_TRUE(error.has_value()) << "no limit error";
  EXPECT_EQ(error->kind(), DocxError::Kind::unzipFailed);
  EXPECT_TRUE(error->isLimit());
  EXPECT_THAT(error->what(), StartsWith("Could not open archive: "));
  EXPECT_THAT(error->what(), HasSubstr(member));
  EXPECT_THAT(error->what(), HasSubstr(limit));
}

TEST(XlsxLimits, WorksheetInflatingPastMemberLimit) {
  TempDir dir;
  const ImportLimits limits{.memberBytes = 1 << 20};
  const auto sheet = testing::sheetXml(row("<c><v>1</v></c>") + std::string(8 << 20, ' '));
  expectLimit(docxErrorFrom([&] {
                readPackage(dir, {{kSheet1, sheet}}, limits);
              }),
              kSheet1, describeBytes(limits.memberBytes));
}

TEST(XlsxLimits, OversizedSharedStringsAreAnErrorNotAnAbsence) {
  TempDir dir;
  const ImportLimits limits{.memberBytes = 1 << 20};
  const std::string shared = "<sst>" + std::string(8 << 20, ' ') + "<si><t>a</t></si></sst>";
  expectLimit(docxErrorFrom([&] {
                readPackage(dir,
                            {{kSheet1, testing::sheetXml(row(R"(<c t="s"><v>0</v></c>)"))},
                             {kSharedStrings, shared}},
                            limits);
              }),
              kSharedStrings, describeBytes(limits.memberBytes));
}

TEST(XlsxLimits, PackageInflatingPastPackageLimitAcrossMembers) {
  TempDir dir;
  const ImportLimits limits{.memberBytes = 1 << 20, .packageBytes = 1 << 20};
  const std::string padding(600 << 10, ' ');
  const Members members{
      {kSharedStrings, "<sst>" + padding + "<si><t>a</t></si></sst>"},
      {kSheet1, testing::sheetXml(row(R"(<c t="s"><v>0</v></c>)") + padding)},
  };
  // Each member alone is within the limits.
  for (const auto& [name, bytes] : members) ASSERT_LT(bytes.size(), limits.memberBytes) << name;

  expectLimit(docxErrorFrom([&] { readPackage(dir, members, limits); }), kSheet1,
              describeBytes(limits.packageBytes));
}

TEST(XlsxLimits, SharedStringRepeatedPastTextLimit) {
  TempDir dir;
  const ImportLimits limits{.textBytes = 1 << 20};
  std::string cells;
  for (int i = 0; i < 100; ++i) cells += R"(<c t="s"><v>0</v></c>)";
  const Members members{{kSheet1, testing::sheetXml(row(cells))},
                        {kSharedStrings, testing::sharedStringsXml({std::string(64 << 10, 'x')})}};

  expectLimit(docxErrorFrom([&] { readPackage(dir, members, limits); }), kSheet1,
              describeBytes(limits.textBytes));
}

TEST(XlsxLimits, FarReferencesPastItemLimit) {
  const struct {
    const char* name;
    std::string rows;
    ImportLimits limits;
  } cases[] = {
      {"last column", row(R"(<c r="XFD1"><v>x</v></c>)"), ImportLimits{.items = 1000}},
      {"eight letters", row(R"(<c r="ZZZZZZZZ1"><v>x</v></c>)"), ImportLimits{.items = 1000}},
      {"more letters than a 64-bit index holds",
       row(R"(<c r="ZZZZZZZZZZZZZZZZZZZZZZZZ1"><v>x</v></c>)"), ImportLimits{}},
      // Each row is small; padding every row to the widest is not.
      {"short rows padded to one wide row",
       row(R"(<c r="XFD1"><v>x</v></c>)") +
           [] {
             std::string rows;
             for (int i = 0; i < 100; ++i) rows += row("<c><v>1</v></c>");
             return rows;
           }(),
       ImportLimits{.items = 100000}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const auto path = dir / "book.xlsx";
    testing::writePackage(path, {{kSheet1, testing::sheetXml(c.rows)}});
    expectLimit(docxErrorFrom([&] { DocxReader::read(path, StyleMap{}, c.limits); }), kSheet1,
                std::to_string(c.limits.items));
  }
}

}  // namespace
}  // namespace inkharbour
