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

}  // namespace

Units::Units() {
  // The library's own messages go to standard error unasked; its status
  // says enough.
  ut_set_error_message_handler(ut_ignore);
  system_ = ut_read_xml(nullptr);
  if (system_ == nullptr) {
    const char* path = ut_get_path_xml(nullptr, nullptr);
    throw std::runtime_error(std::string("cannot read the UDUNITS-2 unit database ") + (path ? path : "(no path)") +
                             " (status " + std::to_string(static_cast<int>(ut_get_status())) + ")");
  }
}

Units::~Units() { ut_free_system(system_); }

std::string Units::respelled(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size();) {
    if (!isalpha(static_cast<unsigned char>(text[i]))) {
      out += text[i++];
      continue;
    }
    size_t end = i;
    while (end < text.size() && (isalpha(static_cast<unsigned char>(text[end])) || text[end] == '_')) ++end;
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
  if (warned_.insert(text).second)
    fprintf(warnings, "cal_dump: unit \"%s\" of %s is not known to UDUNITS-2; written as given\n", text.c_str(),
            var.c_str());
  return text;
}

}  // namespace heron
