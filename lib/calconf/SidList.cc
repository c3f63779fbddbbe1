#include "calconf/SidList.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "base/Exception.h"
#include "calconf/prep_grammar.h"
#include "site/heron_fopen.h"

std::string DidNameOf(const std::string& prefix, const std::string& root) { return prefix + "." + root; }

namespace {
// Position of didName among prefix.root for the given prefixes, or -1.
int whichDid(const std::vector<std::string>& prefixes, const std::string& root, const char* didName) {
  const size_t n = strlen(didName);
  if (n <= root.size() || didName[n - root.size() - 1] != '.' || root != didName + (n - root.size())) return -1;
  for (size_t i = 0; i < prefixes.size(); ++i)
    if (prefixes[i].size() == n - root.size() - 1 && strncmp(didName, prefixes[i].c_str(), prefixes[i].size()) == 0)
      return static_cast<int>(i);
  return -1;
}
}  // namespace

int SidEntry::WhichDid(const char* didName) const { return whichDid(prefixes, root_name, didName); }
int PhaseEntry::WhichDid(const char* didName) const { return whichDid(prefixes, root_name, didName); }

void SidEntry::SetCalibParams(std::vector<param_type> types, std::vector<double> numbers,
                              std::vector<std::string> texts) {
  calib_param_types = std::move(types);
  numbers_ = std::move(numbers);
  texts_ = std::move(texts);
  calib_params.clear();
  size_t n = 0, t = 0;
  for (param_type type : calib_param_types)
    calib_params.push_back(type == CAL_DOUBLE ? static_cast<void*>(&numbers_[n++])
                                              : static_cast<void*>(&texts_[t++][0]));
}

void prepconfigerror(PrepParse& p, const char* msg) {
  // The generated parser names a full stack "memory exhausted".
  if (strcmp(msg, "memory exhausted") == 0) msg = "parser stack overflow";
  if (p.error.empty()) p.error = *p.file + ":" + std::to_string(p.scanner->line()) + ": " + msg;
}

SidList::SidList(const char* prepConfig) : _file(prepConfig) {
  ConfigFile opened = openConfigFile(_file);
  FILE* fp = opened.get();
  ConfigScanner scanner(fp, _file.c_str());
  PrepParse p{&scanner, &_file, this, nullptr, nullptr, 1, {}, {}, {}, std::string()};
  if (prepconfigparse(p) != 0) throw BadConfigurationException(p.error);
  for (auto& ph : phases)
    for (const auto& s : sids)
      if (!ph->phase_file_name.empty() && s->phaseFileName == ph->phase_file_name) ++ph->n_pfs;
}

SidEntry* SidList::sid_from_did(const char* didName) const {
  for (const auto& s : sids)
    if (s->WhichDid(didName) >= 0) return s.get();
  return nullptr;
}

std::vector<SidEntry*> SidList::sids_from_tern_chan(const char* ternName, int channel) const {
  std::vector<SidEntry*> found;
  for (const auto& s : sids)
    if (s->sid_channel == channel && s->sid_tern == ternName) found.push_back(s.get());
  return found;
}

SidEntry* SidList::sid_from_tern_chan(const char* ternName, int channel) const {
  for (const auto& s : sids)
    if (s->sid_channel == channel && s->sid_tern == ternName) return s.get();
  return nullptr;
}

std::vector<int> SidList::TernChannels(const char* ternName) const {
  std::vector<int> channels;
  for (const auto& s : sids)
    if (s->sid_tern == ternName) channels.push_back(s->sid_channel);
  std::sort(channels.begin(), channels.end());
  channels.erase(std::unique(channels.begin(), channels.end()), channels.end());
  return channels;
}

PhaseEntry* SidList::phase_from_did(const char* didName) const {
  for (const auto& ph : phases)
    if (ph->WhichDid(didName) >= 0) return ph.get();
  return nullptr;
}
