// How the supervisor leaves the terminal and handles its privileges, and how
// a set-user-id copy gives them up.
#ifndef SERIAL_INGEST_DETACH_H
#define SERIAL_INGEST_DETACH_H

#include <sys/types.h>

// Leaves the controlling terminal: forks (the parent exits 0), closes every
// descriptor, points the standard streams away from the terminal and starts
// a new session.  Ends with status 1 when it cannot fork or finds no room
// for descriptors.
void disassociate();

// A set-user-id-root copy raises its scheduling priority by 10 (to at most
// -20), inherited by every child; any other copy logs why it cannot.  Then
// every id goes back to the real user for good.  False, logged as
// "setuid(): %m", when that cannot be done.
bool raisePriority(const char* appname);

// Gives up any set-user-id or set-group-id privilege for good: real,
// effective and saved ids all become uid and gid.  False (errno set) when
// that cannot be done or verified.
bool dropPrivileges(uid_t uid, gid_t gid);

#endif
