// The library's failure types.  A caller that may survive a failure catches
// oru::Exception; toString() gives the kind, ": " and the message.  An I/O
// message is "device: task: system error text".
#ifndef HERON_EXCEPTION_H
#define HERON_EXCEPTION_H

#include <exception>
#include <string>

namespace oru {

// Also a std::exception, so that code outside the library can catch it
// with everything else; what() gives the toString() text.
class Exception : public std::exception {
 public:
  Exception(std::string name, std::string msg);
  ~Exception() override;
  virtual std::string toString() const;
  const char* what() const noexcept override { return text.c_str(); }

  // The system's text for errnum (via strerror_r), or "" for 0.
  static std::string errnoToString(int errnum);

 protected:
  std::string name;
  std::string msg;

 private:
  std::string text;  // name + ": " + msg, held for what()
};

class IOException : public Exception {
 public:
  IOException(const char* device, const char* task, int err);
  IOException(const char* device, const char* task, const char* text);
  IOException(const std::string& device, const std::string& task, const std::string& text);
  // For subclasses: etype becomes the exception's name.
  IOException(const char* etype, const char* device, const char* task, int err);
  ~IOException() override;
  int getErrno() const { return error; }

 protected:
  int error;
};

// No more data.  The message ends in ": " on purpose: readers match the class.
class EOFException : public IOException {
 public:
  EOFException(const char* device, const char* task);
  ~EOFException() override;
};

// A signal arrived while waiting for data.  The name itself ends in ": ",
// so toString() shows the separator twice.
class InterruptedException : public Exception {
 public:
  InterruptedException(const char* device, const char* task);
  ~InterruptedException() override;

 protected:
  int error;
};

}  // namespace oru

// A configuration file could not be opened or its contents are wrong.
class BadConfigurationException : public oru::Exception {
 public:
  explicit BadConfigurationException(std::string text);
  // Re-wraps a failure met while reading: the message is e.toString().
  explicit BadConfigurationException(const oru::Exception& e);
  ~BadConfigurationException() override;
};

#endif
