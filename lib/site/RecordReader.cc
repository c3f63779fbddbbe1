#include "site/RecordReader.h"

#include <stdlib.h>

#include "base/Exception.h"
#include "site/heron_fopen.h"

RecordReader::RecordReader(const char* file)
    : file_(file), fp_(openConfigFile(file_)), scanner_(new ConfigScanner(fp_.get(), file_.c_str())) {}

void RecordReader::fail(const std::string& what) const {
  throw BadConfigurationException(file_ + ":" + std::to_string(line_) + ": " + what);
}

bool RecordReader::next(std::vector<RecordValue>& values) {
  values.clear();
  for (;;) {
    ScanValue v;
    const int token = scanner_->next(&v);
    line_ = scanner_->line();
    switch (token) {
      case 0:
        if (!values.empty()) fail("missing ';' at the end of the file");
        return false;
      case ';':
        if (!values.empty()) return true;
        break;  // an empty record
      case SCAN_WORD:
        values.push_back(RecordValue{true, v.word, 0.0, false});
        free(v.word);
        break;
      case SCAN_INT:
      case SCAN_HEX:
        values.push_back(RecordValue{false, std::string(), static_cast<double>(v.integer), true});
        break;
      case SCAN_REAL:
        values.push_back(RecordValue{false, std::string(), v.real, false});
        break;
      case SCAN_TOOLONG:
        fail("token too large, exceeds YYLMAX");
      default:
        fail("unexpected " + (token == SCAN_CLOCK ? std::string("clock time")
                                                  : token == SCAN_JUNK ? std::string("NUL byte")
                                                                       : "'" + std::string(1, char(token)) + "'"));
    }
  }
}
