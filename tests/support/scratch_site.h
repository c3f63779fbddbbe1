// A scratch install root for one test: a fresh directory under /tmp with the
// projects/<project>/<ops> folder, HERON, PROJECT and OPS pointing at it, and
// a way to write files beneath it and to read a folder back.  The directory and everything in it go
// when the object does.  The environment is left pointing at the removed
// root; the next ScratchSite sets it again.
#ifndef HERON_TESTS_SCRATCH_SITE_H
#define HERON_TESTS_SCRATCH_SITE_H

#include <dirent.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

class ScratchSite {
 public:
  explicit ScratchSite(const std::string& project = "p", const std::string& ops = "o")
      : project_(project), ops_(ops) {
    char tmpl[] = "/tmp/heron-test-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) throw std::runtime_error("mkdtemp failed");
    root_ = tmpl;
    mkdirs(opsDir());
    setenv("HERON", root_.c_str(), 1);
    setenv("PROJECT", project_.c_str(), 1);
    setenv("OPS", ops_.c_str(), 1);
  }
  ~ScratchSite() { (void)system(("rm -rf '" + root_ + "'").c_str()); }
  ScratchSite(const ScratchSite&) = delete;
  ScratchSite& operator=(const ScratchSite&) = delete;

  const std::string& root() const { return root_; }
  // $HERON/projects/$PROJECT/$OPS
  std::string opsDir() const { return root_ + "/projects/" + project_ + "/" + ops_; }

  // Writes bytes to a path relative to the root (folders made as needed);
  // returns the whole path.
  std::string write(const std::string& rel, const std::string& bytes) const {
    const std::string path = root_ + "/" + rel;
    mkdirs(path.substr(0, path.rfind('/')));
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    if (!out.flush()) throw std::runtime_error("cannot write " + path);
    return path;
  }
  // Writes a file of the ops folder (ingest.conf, channel_config, ...).
  std::string writeOps(const std::string& name, const std::string& bytes) const {
    return write("projects/" + project_ + "/" + ops_ + "/" + name, bytes);
  }
  // The files of dir (entries not starting with '.'), by name, each with its
  // contents; empty when dir cannot be read.
  static std::map<std::string, std::string> files(const std::string& dir) {
    std::map<std::string, std::string> out;
    DIR* d = opendir(dir.c_str());
    for (struct dirent* e; d && (e = readdir(d)) != nullptr;)
      if (e->d_name[0] != '.') out[e->d_name] = read(dir + "/" + e->d_name);
    if (d) closedir(d);
    return out;
  }
  // The bytes of any file; "" when it cannot be read.
  static std::string read(const std::string& path) {
    std::stringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
  }

 private:
  static void mkdirs(const std::string& dir) {
    for (size_t i = 1; i <= dir.size(); ++i)
      if (i == dir.size() || dir[i] == '/') mkdir(dir.substr(0, i).c_str(), 0755);
  }

  std::string project_, ops_, root_;
};

#endif
