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
  const bool hasFootnotes = !footnotes.empty();

  const std::string contentTypes = writer::contentTypesXml(hasFootnotes, media.extensions());
  const std::string packageRels = writer::packageRelsXml();
  const std::string documentRels = writer::documentRelsXml(media, hasFootnotes);
  const std::string styles = writer::stylesXml();
  const std::string document = writer::documentXml(blocks, media);
  const std::string notes = hasFootnotes ? writer::footnotesXml(footnotes) : std::string();

  std::vector<PackageMember> members{
      {"[Content_Types].xml", contentTypes},
      {"_rels/.rels", packageRels},
      {"word/_rels/document.xml.rels", documentRels},
      {"word/styles.xml", styles},
      {"word/document.xml", document},
  };
  if (hasFootnotes) members.push_back({"word/footnotes.xml", notes});
  for (const auto& member : media.members) {
    members.push_back({"word/media/" + member.name,
                       std::string_view(reinterpret_cast<const char*>(member.data->data()),
                                        member.data->size())});
  }
  ZipTool::writePackage(members, destination);
}

}  // namespace inkharbour::DocxWriter
