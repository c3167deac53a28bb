#!/usr/bin/env python3
"""Writes examples/the-lighthouse-keeper.docx, the manuscript `make run` opens.

The package is small but uses what the reader understands: styles, run
formatting, a tab and a line break, a table, a footnote and an endnote.
Run it again after changing the text; the output is byte-stable.
"""
import pathlib
import zipfile

W = 'xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main"'


def run(text, props=""):
    rpr = f"<w:rPr>{props}</w:rPr>" if props else ""
    return f'<w:r>{rpr}<w:t xml:space="preserve">{text}</w:t></w:r>'


def para(content, style=None):
    ppr = f'<w:pPr><w:pStyle w:val="{style}"/></w:pPr>' if style else ""
    return f"<w:p>{ppr}{content}</w:p>"


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
    "</Relationships>")

members = [
    ("[Content_Types].xml", content_types),
    ("_rels/.rels", package_rels),
    ("word/document.xml", document),
    ("word/_rels/document.xml.rels", document_rels),
    ("word/styles.xml", styles),
    ("word/footnotes.xml", notes("footnote", "Her grandfather lit it first, in 1931.")),
    ("word/endnotes.xml", notes("endnote", "Weather permitting.")),
]

out = pathlib.Path(__file__).resolve().parent.parent / "examples" / "the-lighthouse-keeper.docx"
with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as z:
    for name, text in members:
        info = zipfile.ZipInfo(name, date_time=(2001, 1, 1, 0, 0, 0))
        info.compress_type = zipfile.ZIP_DEFLATED
        z.writestr(info, text.encode("utf-8"))
print(out)
