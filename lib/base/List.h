// The library's intrusive list: a circular, doubly linked list of dlink
// nodes.  A node belongs to at most one list at a time; the list owns the
// nodes it holds and deletes them (through their virtual destructors) when
// it is destroyed.  DPlist (DPlist.h) builds typed, reference-counted sample
// lists on top of it.
#ifndef HERON_LIST_H
#define HERON_LIST_H

class dlist_base;

// A list node.  Derive from it to carry data.
class dlink {
 public:
  dlink() : next(nullptr), prev(nullptr) {}
  virtual ~dlink();
  dlink(const dlink&) = delete;
  dlink& operator=(const dlink&) = delete;

  dlink* next;
  dlink* prev;
};

// Position of an iterator when it is made.
enum where { END = 0, BEGIN = 1 };

class dlist_base {
 public:
  dlist_base() : start(nullptr), l(0) {}
  // Deletes every node still in the list.
  virtual ~dlist_base();
  dlist_base(const dlist_base&) = delete;
  dlist_base& operator=(const dlist_base&) = delete;

  // Puts link before pos; a null pos means at the back.  Inserting before
  // the first node makes link the first.  On an empty list pos must be null
  // (else dlist_base_iter::OutOfBounds).
  void insert(dlink* pos, dlink* link);
  void push_back(dlink* link) { insert(nullptr, link); }

  // Unlinks link without deleting it; the caller owns it afterwards.  Throws
  // dlist_base_iter::OutOfBounds on an empty list, or when the only node is
  // not link.  link must be a node of this list.
  void erase(dlink* link);
  // Unlinks the last node (the caller deletes it).
  void pop_back() { erase(start ? start->prev : nullptr); }

  // Moves the n nodes from first up to, not including, last (null: to the
  // end of from) out of from and before pos (null: at the back of this
  // list).  Nothing happens when first is null.  n must be the length of the
  // run: both counts are adjusted by it.
  void splice(dlink* pos, dlist_base& from, dlink* first, dlink* last, int n);

  bool empty() const { return l == 0; }
  int size() const { return l; }
  dlink* front() const { return start; }
  dlink* back() const { return start ? start->prev : nullptr; }

 protected:
  friend class dlist_base_iter;
  dlink* start;  // first node, null when empty; start->prev is the last
  int l;         // number of nodes
};

// A position in a dlist_base: on a node, or at the end.
class dlist_base_iter {
 public:
  // Thrown when stepping past the end, dereferencing the end, or using an
  // iterator that has no list.
  class OutOfBounds {};

  // An iterator with no list: every use but comparison throws.
  dlist_base_iter() : ce(nullptr), cs(nullptr), i(0) {}
  // BEGIN: on the first node (the end when the list is empty), position 0;
  // END: at the end, position = the list's size.
  dlist_base_iter(dlist_base& list, where w)
      : ce(w == BEGIN ? list.start : nullptr), cs(&list), i(w == BEGIN ? 0 : list.l) {}
  virtual ~dlist_base_iter() = default;
  dlist_base_iter(const dlist_base_iter&) = default;
  dlist_base_iter& operator=(const dlist_base_iter&) = default;

  // To the next node; past the last node to the end.  (The calls every
  // walk makes are inline: a pipeline walks a list or two per sample.)
  dlist_base_iter& operator++() {
    if (!cs || !ce) throw OutOfBounds();
    ce = ce->next;
    ++i;
    if (ce == cs->start) ce = nullptr;
    return *this;
  }
  dlist_base_iter operator++(int);

  // The current node; throws at the end.
  dlink* operator*() const {
    if (!cs || !ce) throw OutOfBounds();
    return ce;
  }
  // The current node, null at the end.
  dlink* operator()() const {
    if (!cs) throw OutOfBounds();
    return ce;
  }

  // Difference of positions.
  int operator-(const dlist_base_iter& o) const { return i - o.i; }
  bool operator!=(const dlist_base_iter& o) const { return ce != o.ce; }
  bool operator==(const dlist_base_iter& o) const { return ce == o.ce; }

  dlist_base* list() const { return cs; }
  int position() const { return i; }

 protected:
  // On node at position pos of list (null node: the end).
  dlist_base_iter(dlist_base* list, dlink* node, int pos) : ce(node), cs(list), i(pos) {}

  dlink* ce;        // current node, null at the end
  dlist_base* cs;   // the list
  int i;            // position, 0 for the first node
};

#endif
