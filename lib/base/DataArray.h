// A growable array of plain values that owns its storage, such as the
// bytes of a raw sample or the floats of a calibrated one.
//
// Storage comes in whole 8-byte units, aligned for any of the typed views
// (char* ... double*), which all reinterpret the same bytes.  Counts are
// kept both in bytes (nbytes, nalloc) and in elements of T (nelem).
#ifndef HERON_DATAARRAY_H
#define HERON_DATAARRAY_H

#include <limits.h>
#include <stddef.h>
#include <string.h>

#include <new>
#include <type_traits>

template <class T>
class DataArray {
  static_assert(std::is_trivially_copyable<T>::value, "DataArray holds plain values");

 public:
  // Room for n elements (zero-filled), none in use.
  explicit DataArray(int n = 0) : nalloc(0), nbytes(0), nelem(0), data(nullptr) {
    reserveBytes(bytesOf(n), false);
  }
  DataArray(const DataArray& o) : nalloc(0), nbytes(0), nelem(0), data(nullptr) {
    copyFrom(o.data, o.nelem);
  }
  DataArray& operator=(const DataArray& o) {
    if (this != &o) copyFrom(o.data, o.nelem);
    return *this;
  }
  virtual ~DataArray() { ::operator delete(data); }

  // Makes the array a copy of the n elements at p, growing the storage
  // only when they do not fit.
  void copyFrom(const T* p, int n) {
    const int bytes = bytesOf(n);
    reserveBytes(bytes, false);
    if (bytes > 0) memmove(data, p, static_cast<size_t>(bytes));
    setCounts(bytes);
  }

  // Makes the array a copy of the n bytes at p by copying a block of
  // `block` bytes (all of which must be readable at p), when n <= block and
  // the storage already holds a block.  Returns false, having changed
  // nothing, otherwise.  For short copies with a constant block size: one
  // fixed-size copy, no test of the length beyond the one here.
  bool copyBlock(const void* p, int n, int block) {
    if (n > block || block > nalloc) return false;
    memcpy(data, p, static_cast<size_t>(block));
    setCounts(n);
    return true;
  }

  // Room for at least n elements; the contents and counts are kept.
  void expand(int n) { reserveBytes(bytesOf(n), true); }

  // Declares the first n bytes in use (e.g. after reading into the
  // storage), growing it if needed; the elements in use are n / sizeof(T).
  void setNbytes(int n) {
    if (n < 0) n = 0;
    reserveBytes(n, true);
    setCounts(n);
  }

  int getNbytes() const { return nbytes; }
  int getAllocNbytes() const { return nalloc; }
  int getAllocSize() const { return nalloc / static_cast<int>(sizeof(T)); }
  int size() const { return nelem; }

  T& operator[](int i) { return data[i]; }
  const T& operator[](int i) const { return data[i]; }

  operator char*() { return reinterpret_cast<char*>(data); }
  operator unsigned char*() { return reinterpret_cast<unsigned char*>(data); }
  operator short*() { return reinterpret_cast<short*>(data); }
  operator unsigned short*() { return reinterpret_cast<unsigned short*>(data); }
  operator int*() { return reinterpret_cast<int*>(data); }
  operator unsigned int*() { return reinterpret_cast<unsigned int*>(data); }
  operator float*() { return reinterpret_cast<float*>(data); }
  operator double*() { return reinterpret_cast<double*>(data); }
  operator const char*() const { return reinterpret_cast<const char*>(data); }
  operator const unsigned char*() const { return reinterpret_cast<const unsigned char*>(data); }
  operator const short*() const { return reinterpret_cast<const short*>(data); }
  operator const unsigned short*() const { return reinterpret_cast<const unsigned short*>(data); }
  operator const int*() const { return reinterpret_cast<const int*>(data); }
  operator const unsigned int*() const { return reinterpret_cast<const unsigned int*>(data); }
  operator const float*() const { return reinterpret_cast<const float*>(data); }
  operator const double*() const { return reinterpret_cast<const double*>(data); }

  // Number of 8-byte units that hold n bytes.
  static int numDouble(int n) { return (n + 7) / 8; }

 private:
  static int bytesOf(int n) {
    if (n <= 0) return 0;
    if (n > (INT_MAX - 7) / static_cast<int>(sizeof(T))) throw std::bad_alloc();
    return n * static_cast<int>(sizeof(T));
  }

  // Grows the storage to hold bytes, keeping the contents when asked.
  void reserveBytes(int bytes, bool keep) {
    if (bytes > nalloc) grow(bytes, keep);
  }
  // Out of line: storage is reused far more often than it grows, and the
  // callers' usual path stays short.
  __attribute__((noinline)) void grow(int bytes, bool keep) {
    if (bytes > INT_MAX - 7) throw std::bad_alloc();
    const int units = numDouble(bytes);
    // Raw storage from operator new is aligned for every typed view.
    void* fresh = ::operator new(static_cast<size_t>(units) * 8);
    memset(fresh, 0, static_cast<size_t>(units) * 8);
    if (keep && nbytes > 0) memcpy(fresh, data, static_cast<size_t>(nbytes));
    ::operator delete(data);
    data = static_cast<T*>(fresh);
    nalloc = units * 8;
  }
  void setCounts(int bytes) {
    nbytes = bytes;
    nelem = bytes / static_cast<int>(sizeof(T));
  }

  int nalloc;  // bytes allocated
  int nbytes;  // bytes in use
  int nelem;   // elements in use
  T* data;     // nalloc bytes, or null
};

#endif
