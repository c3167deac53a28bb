#include "writer/docx_writer.h"

#include <string>
#include <string_view>

#include "importers/package.h"
#include "writer/docx_parts.h"
#include "writer/media.h"

namespace inkharbour::DocxWriter {

void write(const std::vector<Block>& blocks, const std::vector<Footnote>& footnotes,
           const std::filesystem::path& destination) {
  std::vector<const ImageBlock*> images;
  for (const auto& block : blocks) {
    if (const auto* image = std::get_if<ImageBlock>(&block.kind)) images.push_back(image);
  }
  const auto media = writer::planMedia(images);
  // A file's endnotes go back into an endnotes part, so that they stay endnotes.
  std::vector<Footnote> foot, end;
  for (const auto& note : footnotes) (writer::isEndnote(note.id) ? end : foot).push_back(note);
  const writer::NoteParts notes{.footnotes = !foot.empty(), .endnotes = !end.empty()};

  const std::string contentTypes = writer::contentTypesXml(notes, media.extensions());
  const std::string packageRels = writer::packageRelsXml();
  const std::string documentRels = writer::documentRelsXml(media, notes);
  const std::string styles = writer::stylesXml();
  const std::string document = writer::documentXml(blocks, media);
  const std::string footnotesPart =
      notes.footnotes ? writer::notesXml(foot, writer::NoteKind::footnote) : std::string();
  const std::string endnotesPart =
      notes.endnotes ? writer::notesXml(end, writer::NoteKind::endnote) : std::string();

  std::vector<PackageMember> members{
      {"[Content_Types].xml", contentTypes},
      {"_rels/.rels", packageRels},
      {"word/_rels/document.xml.rels", documentRels},
      {"word/styles.xml", styles},
      {"word/document.xml", document},
  };
  if (notes.footnotes) members.push_back({"word/footnotes.xml", footnotesPart});
  if (notes.endnotes) members.push_back({"word/endnotes.xml", endnotesPart});
  for (const auto& member : media.members) {
    members.push_back({"word/media/" + member.name,
                       std::string_view(reinterpret_cast<const char*>(member.data->data()),
                                        member.data->size())});
  }
  ZipTool::writePackage(members, destination);
}

}  // namespace inkharbour::DocxWriter
