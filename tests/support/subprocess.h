// Runs a program with arguments, optional standard input and environment
// additions, and collects its standard output, standard error and status.
#ifndef HERON_TEST_SUBPROCESS_H
#define HERON_TEST_SUBPROCESS_H

#include <string>
#include <vector>

struct RunResult {
  std::string out;
  std::string err;
  int status = -1;  // exit status, or 128 + signal
};

RunResult runProgram(const std::vector<std::string>& argv, const std::string& input = "",
                     const std::vector<std::string>& env = {});

#endif
