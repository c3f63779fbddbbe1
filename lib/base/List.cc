#include "base/List.h"

dlink::~dlink() = default;

dlist_base::~dlist_base() {
  dlink* p = start;
  for (int k = 0; k < l && p; ++k) {
    dlink* next = p->next;
    delete p;
    p = next;
  }
}

void dlist_base::insert(dlink* pos, dlink* link) {
  if (!start) {
    if (pos) throw dlist_base_iter::OutOfBounds();
    link->next = link->prev = link;
    start = link;
    l = 1;
    return;
  }
  dlink* before = pos ? pos : start;
  link->prev = before->prev;
  link->next = before;
  before->prev->next = link;
  before->prev = link;
  if (pos == start) start = link;
  ++l;
}

void dlist_base::erase(dlink* link) {
  if (!start || !link || (l == 1 && link != start)) throw dlist_base_iter::OutOfBounds();
  if (l == 1) {
    start = nullptr;
  } else {
    link->prev->next = link->next;
    link->next->prev = link->prev;
    if (link == start) start = link->next;
  }
  link->next = link->prev = nullptr;
  --l;
}

void dlist_base::splice(dlink* pos, dlist_base& from, dlink* first, dlink* last, int n) {
  if (!first || first == last || !from.start) return;
  dlink* runEnd = last ? last->prev : from.start->prev;

  // Take the run out of from.
  if (runEnd->next == first) {
    from.start = nullptr;  // the run was all of from
  } else {
    first->prev->next = runEnd->next;
    runEnd->next->prev = first->prev;
    if (first == from.start) from.start = runEnd->next;
  }
  from.l -= n;

  // And put it before pos.
  if (!start) {
    first->prev = runEnd;
    runEnd->next = first;
    start = first;
  } else {
    dlink* before = pos ? pos : start;
    dlink* after = before->prev;
    after->next = first;
    first->prev = after;
    runEnd->next = before;
    before->prev = runEnd;
    if (pos == start) start = first;
  }
  l += n;
}

dlist_base_iter dlist_base_iter::operator++(int) {
  dlist_base_iter was = *this;
  ++*this;
  return was;
}
