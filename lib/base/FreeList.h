// Spare objects kept for reuse by classes that are made and dropped once
// per sample (list nodes, lists, samples): taking a spare costs a few
// instructions where the heap costs a malloc and a free.
//
// FreeList<Size> recycles raw blocks of Size bytes; a class takes its
// operator new and delete from it through RecycledStorage.  Spares<T>
// recycles whole objects of class T, storage of their arrays included; the
// class decides when an object goes back (SampleBase::release) and how a
// spare is made ready again.
//
// Owner: each list is process-wide and owns its spares; it keeps at most
// kSparesKept of them (more than a pipeline has in flight) and hands any
// beyond that back to the heap.  The lists are never destroyed, so an object let
// go during the process's exit still finds its list, and spares left at
// exit stay reachable.  The pipeline is single-threaded; so are these.
#ifndef HERON_FREELIST_H
#define HERON_FREELIST_H

#include <stddef.h>

#include <new>

const size_t kSparesKept = 4096;

template <size_t Size>
class FreeList {
  static_assert(Size >= sizeof(void*), "a spare block holds the link to the next");

 public:
  static void* take() {
    if (!head) return ::operator new(Size);
    Block* b = head;
    head = b->next;
    --count;
    return b;
  }

  static void give(void* p) {
    if (!p) return;
    if (count >= kSparesKept) {
      ::operator delete(p);
      return;
    }
    head = new (p) Block{head};
    ++count;
  }

 private:
  struct Block {
    Block* next;
  };
  // Plain data, set before any code runs and never destroyed.
  static inline Block* head = nullptr;
  static inline size_t count = 0;
};

// Derive Class from RecycledStorage<Class> to take its storage from
// FreeList: objects of exactly that class are recycled, those of classes
// derived from it come from the heap.
template <class Class>
class RecycledStorage {
 public:
  static void* operator new(size_t n) {
    return n == sizeof(Class) ? FreeList<sizeof(Class)>::take() : ::operator new(n);
  }
  static void operator delete(void* p, size_t n) {
    if (n == sizeof(Class))
      FreeList<sizeof(Class)>::give(p);
    else
      ::operator delete(p);
  }
};

template <class T>
class Spares {
 public:
  // A spare object, or null when there is none.
  static T* take() { return count > 0 ? kept[--count] : nullptr; }

  // Keeps p for reuse, or deletes it when enough are kept.
  static void give(T* p) {
    if (count < kSparesKept)
      kept[count++] = p;
    else
      delete p;
  }

 private:
  // Plain data, set before any code runs and never destroyed.
  static inline T* kept[kSparesKept] = {};
  static inline size_t count = 0;
};

#endif
