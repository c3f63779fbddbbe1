// The example site scaled up for the benchmarks: a copy of examples/site in
// a scratch install root under /tmp, whose raw folder holds `seconds` of
// archives written by examples/make_raw_data.py; HERON, PROJECT and OPS
// point at it.  The root is removed when the object goes.
#ifndef HERON_BENCH_SCALED_SITE_H
#define HERON_BENCH_SCALED_SITE_H

#include <stdio.h>
#include <stdlib.h>

#include <string>

class ScaledSite {
 public:
  explicit ScaledSite(int seconds) {
    char tmpl[] = "/tmp/heron-bench-site-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) {
      perror("mkdtemp");
      return;
    }
    root_ = tmpl;
    const std::string self = __FILE__;  // <source>/bench/scaled_site.h
    const std::string source = self.substr(0, self.rfind("/bench/"));
    ok_ = run("cp -R '" + source + "/examples/site/.' '" + root_ + "'") &&
          run("python3 '" + source + "/examples/make_raw_data.py' --seconds " + std::to_string(seconds) + " --out '" +
              raw() + "' >/dev/null");
    setenv("HERON", root_.c_str(), 1);
    setenv("PROJECT", "demo", 1);
    setenv("OPS", "ops1", 1);
    unsetenv("RAWDATADIR");
  }
  ~ScaledSite() {
    if (!root_.empty()) run("rm -rf '" + root_ + "'");
  }
  ScaledSite(const ScaledSite&) = delete;
  ScaledSite& operator=(const ScaledSite&) = delete;

  bool ok() const { return ok_; }
  const std::string& root() const { return root_; }
  std::string raw() const { return root_ + "/projects/demo/ops1/raw"; }

  static bool run(const std::string& command) {
    if (system(command.c_str()) == 0) return true;
    fprintf(stderr, "failed: %s\n", command.c_str());
    return false;
  }

 private:
  std::string root_;
  bool ok_ = false;
};

#endif
