// How the supervisor leaves the terminal and handles its privileges, and how
// a set-user-id copy gives them up.
#ifndef SERIAL_INGEST_DETACH_H
#define SERIAL_INGEST_DETACH_H

#include <sys/types.h>

// Leaves the controlling terminal: forks (the parent exits 0), closes every
// descriptor, puts the three standard streams on /dev/null and starts a new
// session.  Ends with status 1 when it cannot fork or finds no room for
// descriptors.
void disassociate();

// Points standard output and error at /dev/console when the caller may open
// it; otherwise they stay where they are.  Called only once every privilege
// is gone, so that the console is never opened with rights the real user
// lacks and handed on to the children.
void attachConsole();

// True for a set-user-id or set-group-id copy run by someone else: its
// effective ids are not the caller's.
bool privilegedCopy();

// The search path of a privileged copy: the caller's PATH would choose the
// program that the supervisor starts with the caller's arguments.
extern const char* const kSystemPath;

// Nice value meaning "children keep the supervisor's priority".
const int kInheritNice = 100;

// A set-user-id-root copy raises its scheduling priority by 10 (to at most
// -20); any other copy logs why it cannot.  Then every id goes back to the
// real user for good.  *childNice is the nice value that children must go
// back to (the one before the raise) when the real user is not root, else
// kInheritNice: only root's own children keep the raised priority.  False,
// logged as "setuid(): %m", when the ids cannot be given back.
bool raisePriority(const char* appname, int* childNice);

// Gives up any set-user-id or set-group-id privilege for good: real,
// effective and saved ids all become uid and gid.  False (errno set) when
// that cannot be done or verified.
bool dropPrivileges(uid_t uid, gid_t gid);

#endif
