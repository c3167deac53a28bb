#!/usr/bin/env python3
"""Writes the example project's files into examples/: the manuscript
the-lighthouse-keeper.docx, the workbook supply-log.xlsx and the text file
keeper-letters.txt, which `make run` places in a fresh project and opens.

The Word package is small but uses what the reader understands: styles, run
formatting, a tab and a line break, a table, a picture, a footnote and an
endnote. Run it again after changing the text; the output is byte-stable.
"""
import pathlib
import struct
import zlib

import zipfile

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent / "examples"


def png(width, height, pixel):
    """A truecolour PNG whose pixel(x, y) gives (r, g, b)."""
    raw = b"".join(b"\0" + b"".join(bytes(pixel(x, y)) for x in range(width))
                   for y in range(height))

    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data
                + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF))

    return (b"\x89PNG\r\n\x1a\n"
            + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


def lighthouse(x, y):
    """Night sky, sea, a white-and-red tower and its beam."""
    w, h = 240, 150
    sea = y > 112
    tower = abs(x - 120) < 9 + (y - 50) * 0.08 and 50 < y <= 118
    lamp = abs(x - 120) < 8 and 38 < y <= 50
    beam = 36 < y < 50 and x > 128 and abs(y - 44) < (x - 128) * 0.12 + 2
    if lamp:
        return (255, 214, 102)
    if tower:
        return (200, 40, 40) if (y // 12) % 2 else (245, 245, 240)
    if beam:
        return (250, 230, 150)
    if sea:
        return (20, 50 + (y - 112) * 2, 90 + (y - 112) * 2)
    return (15 + y // 6, 25 + y // 5, 60 + y // 3)

W = 'xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main"'


def run(text, props=""):
    rpr = f"<w:rPr>{props}</w:rPr>" if props else ""
    return f'<w:r>{rpr}<w:t xml:space="preserve">{text}</w:t></w:r>'


def para(content, style=None):
    ppr = f'<w:pPr><w:pStyle w:val="{style}"/></w:pPr>' if style else ""
    return f"<w:p>{ppr}{content}</w:p>"


def picture(rid, name, cx, cy):
    """An inline picture of cx x cy EMUs showing the image of relationship rid."""
    return ('<w:r><w:drawing><wp:inline xmlns:wp="http://schemas.openxmlformats.org/drawingml/2006/wordprocessingDrawing">'
            f'<wp:extent cx="{cx}" cy="{cy}"/><wp:docPr id="1" name="{name}"/>'
            '<a:graphic xmlns:a="http://schemas.openxmlformats.org/drawingml/2006/main">'
            '<a:graphicData uri="http://schemas.openxmlformats.org/drawingml/2006/picture">'
            '<pic:pic xmlns:pic="http://schemas.openxmlformats.org/drawingml/2006/picture">'
            f'<pic:nvPicPr><pic:cNvPr id="0" name="{name}"/><pic:cNvPicPr/></pic:nvPicPr>'
            '<pic:blipFill><a:blip xmlns:r="http://schemas.openxmlformats.org/officeDocument/2006/relationships" '
            f'r:embed="{rid}"/></pic:blipFill>'
            f'<pic:spPr><a:xfrm><a:off x="0" y="0"/><a:ext cx="{cx}" cy="{cy}"/></a:xfrm>'
            '<a:prstGeom prst="rect"/></pic:spPr></pic:pic></a:graphicData></a:graphic>'
            '</wp:inline></w:drawing></w:r>')


def cell(text):
    return f"<w:tc>{para(run(text))}</w:tc>"


body = "".join([
    para(run("The Lighthouse Keeper"), "Title"),
    para(run("Chapter One"), "Heading1"),
    para(run("The lamp had burned for ninety years, and ")
         + run("Ada", "<w:b/>") + run(" meant to keep it burning for ninety more.")
         + '<w:r><w:rPr><w:rStyle w:val="FootnoteReference"/></w:rPr><w:footnoteReference w:id="1"/></w:r>'),
    para(run("Every night she climbed the ") + run("hundred and twelve", "<w:i/>")
         + run(" steps.") + "<w:r><w:tab/></w:r>" + run("Every morning she wrote it down.")),
    para(run("The log", "<w:smallCaps/>") + run(" read:") + "<w:r><w:br/></w:r>"
         + run("Wind north-east. Glass falling. Lamp lit at dusk.", "<w:color w:val=\"1F4E79\"/>")),
    para(run("A light is a promise kept in the dark."), "Quote"),
    para(picture("rId4", "lighthouse.png", 2286000, 1428750)),
    para(run("Chapter Two"), "Heading1"),
    para(run("The supply boat came on the first of each month.")
         + '<w:r><w:endnoteReference w:id="1"/></w:r>'),
    "<w:tbl>"
    + "<w:tr>" + cell("Month") + cell("Oil (gallons)") + cell("Visitors") + "</w:tr>"
    + "<w:tr>" + cell("March") + cell("40") + cell("2") + "</w:tr>"
    + "<w:tr>" + cell("April") + cell("36") + cell("0") + "</w:tr>"
    + "</w:tbl>",
    para(run("H") + run("2", '<w:vertAlign w:val="subscript"/>') + run("O froze in the cistern; ")
         + run("never again", "<w:strike/>") + run(" she said.")),
])

document = f'<?xml version="1.0" encoding="UTF-8" standalone="yes"?><w:document {W}><w:body>{body}</w:body></w:document>'

styles = f'<?xml version="1.0" encoding="UTF-8" standalone="yes"?><w:styles {W}>' + "".join(
    f'<w:style w:type="paragraph" w:styleId="{sid}"><w:name w:val="{name}"/></w:style>'
    for sid, name in [("Normal", "Normal"), ("Title", "Title"), ("Heading1", "heading 1"),
                      ("Quote", "Quote")]) + "</w:styles>"


def notes(kind, text):
    return (f'<?xml version="1.0" encoding="UTF-8" standalone="yes"?><w:{kind}s {W}>'
            f'<w:{kind} w:type="separator" w:id="-1"><w:p><w:r><w:separator/></w:r></w:p></w:{kind}>'
            f'<w:{kind} w:type="continuationSeparator" w:id="0"><w:p><w:r><w:continuationSeparator/></w:r></w:p></w:{kind}>'
            f'<w:{kind} w:id="1"><w:p><w:r><w:{kind}Ref/></w:r>{run(" " + text)}</w:p></w:{kind}>'
            f"</w:{kind}s>")


content_types = (
    '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'
    '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
    '<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>'
    '<Default Extension="xml" ContentType="application/xml"/>'
    '<Default Extension="png" ContentType="image/png"/>'
    '<Override PartName="/word/document.xml" ContentType="application/vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml"/>'
    '<Override PartName="/word/styles.xml" ContentType="application/vnd.openxmlformats-officedocument.wordprocessingml.styles+xml"/>'
    '<Override PartName="/word/footnotes.xml" ContentType="application/vnd.openxmlformats-officedocument.wordprocessingml.footnotes+xml"/>'
    '<Override PartName="/word/endnotes.xml" ContentType="application/vnd.openxmlformats-officedocument.wordprocessingml.endnotes+xml"/>'
    "</Types>")
package_rels = (
    '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'
    '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
    '<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument" Target="word/document.xml"/>'
    "</Relationships>")
document_rels = (
    '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'
    '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
    '<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/styles" Target="styles.xml"/>'
    '<Relationship Id="rId2" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/footnotes" Target="footnotes.xml"/>'
    '<Relationship Id="rId3" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/endnotes" Target="endnotes.xml"/>'
    '<Relationship Id="rId4" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/image" Target="media/lighthouse.png"/>'
    "</Relationships>")



def write_package(path, members):
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as z:
        for name, data in members:
            info = zipfile.ZipInfo(name, date_time=(2001, 1, 1, 0, 0, 0))
            info.compress_type = zipfile.ZIP_DEFLATED
            z.writestr(info, data.encode("utf-8") if isinstance(data, str) else data)
    print(path)


write_package(EXAMPLES / "the-lighthouse-keeper.docx", [
    ("[Content_Types].xml", content_types),
    ("_rels/.rels", package_rels),
    ("word/document.xml", document),
    ("word/_rels/document.xml.rels", document_rels),
    ("word/styles.xml", styles),
    ("word/footnotes.xml", notes("footnote", "Her grandfather lit it first, in 1931.")),
    ("word/endnotes.xml", notes("endnote", "Weather permitting.")),
    ("word/media/lighthouse.png", png(240, 150, lighthouse)),
])

# The supply boat's log as a workbook: shared strings and numbers.
SS = 'xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"'
rows = [["Date", "Oil (gallons)", "Wicks", "Note"],
        ["1 March", 40, 6, "Calm crossing"],
        ["1 April", 36, 4, "Fog until noon"],
        ["1 May", 38, 5, "Letters from the mainland"]]
strings = []


def xlsx_cell(ref, value):
    if isinstance(value, str):
        if value not in strings:
            strings.append(value)
        return f'<c r="{ref}" t="s"><v>{strings.index(value)}</v></c>'
    return f'<c r="{ref}"><v>{value}</v></c>'


sheet_rows = "".join(
    f'<row r="{r + 1}">' + "".join(xlsx_cell(f"{chr(65 + c)}{r + 1}", v) for c, v in enumerate(row))
    + "</row>" for r, row in enumerate(rows))
sheet = f'<?xml version="1.0" encoding="UTF-8" standalone="yes"?><worksheet {SS}><sheetData>{sheet_rows}</sheetData></worksheet>'
shared = (f'<?xml version="1.0" encoding="UTF-8" standalone="yes"?><sst {SS} count="{len(strings)}" uniqueCount="{len(strings)}">'
          + "".join(f"<si><t>{s}</t></si>" for s in strings) + "</sst>")
write_package(EXAMPLES / "supply-log.xlsx", [
    ("[Content_Types].xml",
     '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'
     '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
     '<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>'
     '<Default Extension="xml" ContentType="application/xml"/>'
     '<Override PartName="/xl/workbook.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml"/>'
     '<Override PartName="/xl/worksheets/sheet1.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml"/>'
     '<Override PartName="/xl/sharedStrings.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.sharedStrings+xml"/>'
     "</Types>"),
    ("_rels/.rels",
     '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'
     '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
     '<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument" Target="xl/workbook.xml"/>'
     "</Relationships>"),
    ("xl/workbook.xml",
     f'<?xml version="1.0" encoding="UTF-8" standalone="yes"?><workbook {SS} '
     'xmlns:r="http://schemas.openxmlformats.org/officeDocument/2006/relationships">'
     '<sheets><sheet name="Supplies" sheetId="1" r:id="rId1"/></sheets></workbook>'),
    ("xl/_rels/workbook.xml.rels",
     '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'
     '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
     '<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet" Target="worksheets/sheet1.xml"/>'
     '<Relationship Id="rId2" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/sharedStrings" Target="sharedStrings.xml"/>'
     "</Relationships>"),
    ("xl/worksheets/sheet1.xml", sheet),
    ("xl/sharedStrings.xml", shared),
])

letters = """Dear Ada,
The boat will bring the new wicks on the first.
Mind the third step from the top; it is loose again.
Your brother, Tom
"""
(EXAMPLES / "keeper-letters.txt").write_text(letters.rstrip("\n"), encoding="utf-8")
print(EXAMPLES / "keeper-letters.txt")
