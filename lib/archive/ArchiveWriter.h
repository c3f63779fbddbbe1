// The raw archive of one station: whole samples appended, in arrival order,
// to files named by the station's archive_config pattern.  A new file starts
// at every start of the program, at every period boundary and on request,
// and an existing file is never opened again.  A file is named by the second
// it opens in, never later: when that name is taken, or a file already began
// in this second, the samples wait in memory for the next second.  Samples
// gather in memory and go to disk, synced, at least once a second and
// whenever a file ends, so a power cut loses at most the last second.  A
// write that fails (a full disk) is cut back to the last whole sample,
// logged at most once a minute, counted, and retried on the next flush;
// while it fails, up to kMaxPending bytes wait and later samples are counted
// as lost.  A file whose directory was removed is noticed at the next flush
// (it has no link left): the directory is made again and a new file opened.
#ifndef HERON_ARCHIVE_ARCHIVEWRITER_H
#define HERON_ARCHIVE_ARCHIVEWRITER_H

#include <stddef.h>
#include <sys/types.h>

#include <string>

class ArchiveWriter {
 public:
  static const size_t kMaxPending = 8 << 20;

  // Files go in dir, named by the strftime pattern of their start time
  // (UTC) and covering period seconds each.  Throws BadConfigurationException
  // naming the pattern when it could name a file outside dir.
  ArchiveWriter(const std::string& dir, const std::string& pattern, double period);
  ~ArchiveWriter();
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;

  // Makes the directory (with its parents, 0755) when missing and creates
  // and removes a file in it; throws oru::IOException naming the path and
  // the system's reason when either fails.
  void prepare() const;

  // Appends one sample's bytes (header and data) at wall time now.
  void append(const char* p, size_t n, double now);
  // Writes and syncs what waits; a new file at a period boundary.
  void flush(double now);
  // Ends the current file; the next sample starts a new one.  A file that
  // began in the second of now is kept: at most one new file a second.
  void rotate(double now);

  unsigned long errors() const { return errors_; }
  unsigned long lost() const { return lost_; }
  // Empty while archiving works; else what failed last, with its reason.
  const std::string& failure() const { return failure_; }
  const std::string& currentFile() const { return path_; }
  // Bytes of whole samples written to the current file.
  off_t fileBytes() const { return committed_; }

 private:
  bool openFile(double now);
  double startFor(double now) const;
  void closeFile();
  bool writePending();
  bool fileRemoved(double now);
  void fail(const char* what, int err, double now);

  std::string dir_, pattern_;
  double period_;
  std::string path_;
  int fd_ = -1;
  double fileEnd_ = 0;     // the period boundary that ends the file
  double nextStart_ = 0;   // the boundary the next file starts at, 0: now
  double opened_ = -1;     // the second the last file opened in
  off_t committed_ = 0;    // bytes of whole samples on disk
  std::string pending_;
  unsigned long errors_ = 0, lost_ = 0;
  std::string failure_;
  double lastLog_ = -1e9;  // when a failure was last logged
};

// Makes path and its missing parents (0755); false with errno set when it
// cannot.
bool makeDirectories(const std::string& path);

#endif
