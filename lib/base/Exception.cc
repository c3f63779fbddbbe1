#include "base/Exception.h"

#include <string.h>

namespace oru {

Exception::Exception(std::string n, std::string m)
    : name(std::move(n)), msg(std::move(m)), text(name + ": " + msg) {}
Exception::~Exception() = default;

std::string Exception::toString() const { return name + ": " + msg; }

namespace {
// strerror_r comes in two flavours; each overload picks the text from its own.
[[maybe_unused]] const char* pickText(int rc, const char* buf) { return rc == 0 ? buf : "Unknown error"; }
[[maybe_unused]] const char* pickText(const char* text, const char*) { return text; }
}  // namespace

std::string Exception::errnoToString(int errnum) {
  if (errnum == 0) return std::string();
  char buf[255];
  buf[0] = '\0';
  return std::string(pickText(strerror_r(errnum, buf, sizeof buf), buf));
}

IOException::IOException(const char* device, const char* task, int err)
    : Exception("IOException", std::string(device) + ": " + task + ": " + errnoToString(err)), error(err) {}

IOException::IOException(const char* device, const char* task, const char* text)
    : Exception("IOException", std::string(device) + ": " + task + ": " + text), error(0) {}

IOException::IOException(const std::string& device, const std::string& task, const std::string& text)
    : Exception("IOException", device + ": " + task + ": " + text), error(0) {}

IOException::IOException(const char* etype, const char* device, const char* task, int err)
    : Exception(etype, std::string(device) + ": " + task + ": " + errnoToString(err)), error(err) {}

IOException::~IOException() = default;

EOFException::EOFException(const char* device, const char* task)
    : IOException("EOFException", device, task, 0) {}
EOFException::~EOFException() = default;

InterruptedException::InterruptedException(const char* device, const char* task)
    : Exception("InterruptedException: ", std::string(device) + ": " + task), error(0) {}
InterruptedException::~InterruptedException() = default;

}  // namespace oru

BadConfigurationException::BadConfigurationException(std::string text)
    : oru::Exception("BadConfigurationException", std::move(text)) {}
BadConfigurationException::BadConfigurationException(const oru::Exception& e)
    : oru::Exception("BadConfigurationException", e.toString()) {}
BadConfigurationException::~BadConfigurationException() = default;
