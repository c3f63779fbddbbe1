#include "CfUnits.h"

#include <ctype.h>
#include <udunits2.h>

#include <memory>
#include <stdexcept>

namespace heron {

namespace {

// Words of site files that UDUNITS-2 reads as another unit, or not at all.
const struct {
  const char* site;
  const char* udunits;
} kSpellings[] = {
    {"mb", "hPa"},       // a millibarn to UDUNITS-2; the sites mean the millibar
    {"deg", "degree"},   // unknown to UDUNITS-2; the sites mean the angle
    {"degs", "degree"},
};

struct UnitFree {
  void operator()(ut_unit* u) const { ut_free(u); }
};
using UnitPtr = std::unique_ptr<ut_unit, UnitFree>;

// The end of the word (letters and underscores) that starts at i; i when
// none does.
size_t wordEnd(const std::string& text, size_t i) {
  if (i >= text.size() || !isalpha(static_cast<unsigned char>(text[i]))) return i;
  while (i < text.size() && (isalpha(static_cast<unsigned char>(text[i])) || text[i] == '_')) ++i;
  return i;
}

}  // namespace

Units::Units() {
  // The library's own messages go to standard error unasked; its status
  // says enough.
  ut_set_error_message_handler(ut_ignore);
  system_ = ut_read_xml(nullptr);
  if (system_ == nullptr) {
    const int status = static_cast<int>(ut_get_status());
    ut_status source;
    const char* path = ut_get_path_xml(nullptr, &source);
    throw std::runtime_error(std::string("cannot read the UDUNITS-2 unit database ") + (path ? path : "(no path)") +
                             (source == UT_OPEN_ENV ? ", named by UDUNITS2_XML_PATH" : "") + " (UDUNITS-2 status " +
                             std::to_string(status) + ")");
  }
}

Units::~Units() { ut_free_system(system_); }

std::string Units::respelled(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size();) {
    const size_t end = wordEnd(text, i);
    if (end == i) {
      out += text[i++];
      continue;
    }
    const std::string word = text.substr(i, end - i);
    const char* replaced = word.c_str();
    for (const auto& s : kSpellings)
      if (word == s.site) replaced = s.udunits;
    out += replaced;
    i = end;
  }
  return out;
}

bool Units::known(const std::string& text) const {
  return UnitPtr(ut_parse(system_, text.c_str(), UT_UTF8)) != nullptr;
}

bool Units::convertible(const std::string& text, const char* reference, int power) const {
  UnitPtr unit(ut_parse(system_, text.c_str(), UT_UTF8));
  UnitPtr ref(ut_parse(system_, reference, UT_ASCII));
  if (!unit || !ref) return false;
  UnitPtr raised(ut_raise(ref.get(), power));
  return raised && ut_are_convertible(unit.get(), raised.get()) != 0;
}

std::string Units::written(const std::string& text, const std::string& var, FILE* warnings) {
  const std::string fixed = respelled(text);
  if (known(fixed)) return fixed;
  // One warning per word UDUNITS-2 does not know, so that a variance's or
  // covariance's unit built on it is not reported again.
  bool fresh = false, anyWord = false;
  for (size_t i = 0; i < fixed.size();) {
    const size_t end = wordEnd(fixed, i);
    const std::string word = fixed.substr(i, end - i);
    i = end > i ? end : i + 1;
    if (word.empty() || known(word)) continue;
    anyWord = true;
    fresh = warned_.insert(word).second || fresh;
  }
  if (anyWord ? fresh : warned_.insert(fixed).second)
    fprintf(warnings, "cal_dump: unit \"%s\" of %s is not known to UDUNITS-2; written as given\n", text.c_str(),
            var.c_str());
  return text;
}

}  // namespace heron
