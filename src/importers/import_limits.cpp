#include "importers/import_limits.h"

#include "importers/docx_error.h"

namespace inkharbour {

namespace {

[[noreturn]] void exceeded(std::string_view member, const std::string& what) {
  throw DocxError::limitExceeded(std::string(member) + ": " + what);
}

}  // namespace

std::string describeBytes(std::uint64_t bytes) {
  if (bytes >= (1ull << 30) && bytes % (1ull << 30) == 0) {
    return std::to_string(bytes >> 30) + " GiB";
  }
  if (bytes >= (1ull << 20) && bytes % (1ull << 20) == 0) {
    return std::to_string(bytes >> 20) + " MiB";
  }
  return std::to_string(bytes) + " bytes";
}

void ImportBudget::addInflated(std::string_view member, std::uint64_t bytes) {
  inflated_ += bytes;
  if (inflated_ > limits_.packageBytes) {
    exceeded(member, "the package inflates to more than " + describeBytes(limits_.packageBytes) +
                         " in one import, the limit");
  }
}

void ImportBudget::textExceeded(std::string_view member) const {
  exceeded(member, "the imported text exceeds " + describeBytes(limits_.textBytes) +
                       ", the limit for one import");
}

void ImportBudget::itemsExceeded(std::string_view member) const {
  exceeded(member, "more than " + std::to_string(limits_.items) +
                       " paragraphs, runs and cells, the limit for one import");
}

void ImportBudget::paragraphsExceeded(std::string_view member) const {
  exceeded(member, "more than " + std::to_string(limits_.paragraphs) +
                       " paragraphs, the limit for one import");
}

void ImportBudget::addPicture(std::string_view member, std::uint64_t bytes) {
  if (__builtin_add_overflow(pictures_, bytes, &pictures_) || pictures_ > limits_.pictureBytes) {
    exceeded(member, "the imported pictures exceed " + describeBytes(limits_.pictureBytes) +
                         ", the limit for one import");
  }
}

void ImportBudget::checkTableDepth(std::string_view member, std::uint64_t depth) const {
  if (depth > limits_.tableDepth) {
    exceeded(member, "tables nested more than " + std::to_string(limits_.tableDepth) +
                         " deep, the limit");
  }
}

}  // namespace inkharbour
