// Typed lists of reference-counted samples over the intrusive list.
//
// A DPlist<T> holds pointers to objects derived from SampleBase, each
// through its own TPlink<T> node, and every node holds one reference.  One
// object may sit in several lists at once; it is deleted when the last node
// that points at it goes (list destroyed, erase, pop_back): the node calls
// its release(), which deletes it unless its class keeps it for reuse.
// Objects are handed to a list with refCount 0 and belong to the lists from
// then on.  Nodes and lists come from free lists (FreeList.h): a pipeline
// makes and drops one of each per sample.
#ifndef HERON_DPLIST_H
#define HERON_DPLIST_H

#include <functional>

#include "base/FreeList.h"
#include "base/List.h"

// Base of everything kept in a DPlist.  Copies start unshared.
class SampleBase {
 public:
  SampleBase() : refCount(0) {}
  SampleBase(const SampleBase&) : refCount(0) {}
  SampleBase& operator=(const SampleBase&) { return *this; }
  virtual ~SampleBase() {}

  // Called by the last node to let go: deletes the object.  A class that
  // reuses its objects keeps it instead (Spares in FreeList.h).
  virtual void release() { delete this; }

  // Number of list nodes pointing at this object; kept by TPlink.
  int refCount;
};

// The deleter of a unique_ptr that holds a sample outside any list.
struct ReleaseSample {
  void operator()(SampleBase* s) const { s->release(); }
};

// A node carrying a value.
template <class T>
class Tlink : public dlink {
 public:
  explicit Tlink(const T& v) : info(v) {}
  T info;
};

// The node of a DPlist<T>: holds one reference to *info.
template <class T>
class TPlink : public Tlink<void*>, public RecycledStorage<TPlink<T>> {
 public:
  explicit TPlink(T* p) : Tlink<void*>(p) {
    if (p) ++p->refCount;
  }
  ~TPlink() override {
    T* p = sample();
    if (p && --p->refCount == 0) p->release();
  }
  T* sample() const { return static_cast<T*>(info); }
};

template <class T>
class DPlist;

template <class T>
class DPlist_iter : public dlist_base_iter {
 public:
  DPlist_iter() {}
  DPlist_iter(DPlist<T>& list, where w) : dlist_base_iter(list, w) {}

  DPlist_iter& operator++() {
    dlist_base_iter::operator++();
    return *this;
  }
  DPlist_iter operator++(int) {
    DPlist_iter was = *this;
    dlist_base_iter::operator++();
    return was;
  }
  // The current sample; throws OutOfBounds at the end.
  T* operator*() const { return static_cast<TPlink<T>*>(dlist_base_iter::operator*())->sample(); }
  T* operator->() const { return **this; }
  // The current sample, null at the end.
  T* operator()() const {
    dlink* n = dlist_base_iter::operator()();
    return n ? static_cast<TPlink<T>*>(n)->sample() : nullptr;
  }
  // The current node, null at the end.
  dlink* node() const { return ce; }

 private:
  friend class DPlist<T>;
  DPlist_iter(DPlist<T>* list, dlink* n, int pos) : dlist_base_iter(list, n, pos) {}
};

template <class T>
class DPlist : public dlist_base, public RecycledStorage<DPlist<T>> {
 public:
  DPlist() {}

  DPlist_iter<T> begin() { return DPlist_iter<T>(*this, BEGIN); }
  DPlist_iter<T> end() { return DPlist_iter<T>(*this, END); }

  // Appends p, taking a reference to it.
  void push_back(T* p) { dlist_base::push_back(new TPlink<T>(p)); }

  // Puts p before pos (the end iterator: at the back).  Throws
  // dlist_base_iter::OutOfBounds, without touching p, when pos belongs to
  // another list.
  void insert(const DPlist_iter<T>& pos, T* p) {
    if (pos.list() != this) throw dlist_base_iter::OutOfBounds();
    dlist_base::insert(pos.node(), new TPlink<T>(p));
  }

  // Removes the node at pos, dropping its reference, and returns the
  // position of the node that followed it.
  DPlist_iter<T> erase(const DPlist_iter<T>& pos) {
    if (pos.list() != this) throw dlist_base_iter::OutOfBounds();
    dlink* n = pos.dlist_base_iter::operator*();  // throws at the end
    dlink* next = n->next == start ? nullptr : n->next;
    dlist_base::erase(n);
    delete n;
    return DPlist_iter<T>(this, next, next ? pos.position() : l);
  }

  // Removes the last node, dropping its reference; OutOfBounds when empty.
  void pop_back() {
    dlink* n = dlist_base::back();
    dlist_base::erase(n);
    delete n;
  }

  // First and last samples; null when the list is empty.
  T* front() const { return start ? node(start)->sample() : nullptr; }
  T* back() const { return start ? node(start->prev)->sample() : nullptr; }

  // Insert p so that the list stays in increasing order by less (by
  // default T's operator<), after any samples that compare equal: a run of
  // equal keys keeps its arrival order.  FromEnd searches from the back and
  // suits samples that arrive nearly in order; FromBegin searches from the
  // front.  Both give the same list.
  template <class Less = std::less<T>>
  void IncreasingListInsertFromEnd(T* p, Less less = Less()) {
    dlink* n = start ? start->prev : nullptr;
    for (int k = 0; k < l; ++k, n = n->prev)
      if (!less(*p, *node(n)->sample())) {
        // After n: before its successor, or at the back.
        dlist_base::insert(n->next == start ? nullptr : n->next, new TPlink<T>(p));
        return;
      }
    dlist_base::insert(start, new TPlink<T>(p));  // before everything
  }

  template <class Less = std::less<T>>
  void IncreasingListInsertFromBegin(T* p, Less less = Less()) {
    dlink* n = start;
    for (int k = 0; k < l; ++k, n = n->next)
      if (less(*p, *node(n)->sample())) {
        dlist_base::insert(n, new TPlink<T>(p));
        return;
      }
    dlist_base::insert(nullptr, new TPlink<T>(p));
  }

 private:
  static TPlink<T>* node(dlink* n) { return static_cast<TPlink<T>*>(n); }
};

// Moves all of from before pos (the end iterator: onto the back of pos's
// list).
template <class T>
void splice(const DPlist_iter<T>& pos, DPlist<T>& from) {
  if (!pos.list()) throw dlist_base_iter::OutOfBounds();
  pos.list()->splice(pos.node(), from, from.dlist_base::front(), nullptr, from.size());
}

// Moves the run [first, last) of from before pos.
template <class T>
void splice(const DPlist_iter<T>& pos, DPlist<T>& from, const DPlist_iter<T>& first,
            const DPlist_iter<T>& last) {
  if (!pos.list() || first.list() != &from || last.list() != &from)
    throw dlist_base_iter::OutOfBounds();
  pos.list()->splice(pos.node(), from, first.node(), last.node(), last - first);
}

#endif
