// Site file names beneath the install root.  Names are written with "$"
// components ("$HERON/projects/$PROJECT/$OPS/ingest.conf") and expanded from
// the environment when the file is opened.
#ifndef HERON_HERON_FOPEN_H
#define HERON_HERON_FOPEN_H

#include <stdio.h>

#ifdef __cplusplus
#include <string>
extern "C" {
#endif

// Expands every path component that starts with "$" from the environment
// (unset variables stay as written), collapses runs of slashes and drops a
// trailing slash.  Returns a malloc'ed string for free(), or null when
// memory runs out.
char* heron_expand_name(const char* name);

// fopen of the expanded name; on failure prints the system error prefixed by
// the expanded path and returns null.
FILE* heron_fopen(const char* name, const char* mode);

// Opens a calibration file.  An absolute (expanded) name is opened as it is;
// a relative one is looked for in $HERON/projects/$PROJECT/cal_files and then
// in $HERON/cal_files.  On failure prints why and returns null.
FILE* heron_cal_fopen(const char* name, const char* mode);

#ifdef __cplusplus
}

#include <memory>

// heron_cal_fopen, which also tells the path it opened, or tried last when
// it failed (empty when HERON or PROJECT was missing), so that a reader can
// name the very file a fault is in.
FILE* heronCalFopen(const char* name, const char* mode, std::string* path);

// Expands fname in place and opens it; throws oru::IOException
// (path, "open", errno) when it cannot.
FILE* heronFopen(std::string& fname, const char* access);

// A site configuration file open for reading, closed when the handle goes.
using ConfigFile = std::unique_ptr<FILE, int (*)(FILE*)>;

// heronFopen for the configuration readers: a file that cannot be opened is
// a BadConfigurationException carrying the oru::IOException's text.
ConfigFile openConfigFile(std::string& fname);
#endif

#endif
