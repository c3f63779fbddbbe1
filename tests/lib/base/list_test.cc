// Intrusive list, reference-counted sample lists, sample streams, arrays.
#include <gtest/gtest.h>

#include <vector>

#include "base/DPlist.h"
#include "base/DataArray.h"
#include "base/SampleStream.h"

namespace {

// A sample that counts deaths.
struct Probe : SampleBase {
  Probe(double t, int* deaths) : ttag(t), deaths(deaths) {}
  ~Probe() override { ++*deaths; }
  double ttag;
  int* deaths;
};
bool operator<(const Probe& a, const Probe& b) { return a.ttag < b.ttag; }

// The samples in list order, after checking that the circle is consistent
// both ways and matches the count.
std::vector<Probe*> samples(DPlist<Probe>& l) {
  std::vector<Probe*> v;
  for (DPlist_iter<Probe> it = l.begin(); it != l.end(); ++it) {
    EXPECT_EQ(it.node()->next->prev, it.node());
    v.push_back(*it);
  }
  EXPECT_EQ(static_cast<int>(v.size()), l.size());
  return v;
}

std::vector<double> times(DPlist<Probe>& l) {
  std::vector<double> v;
  for (const Probe* p : samples(l)) v.push_back(p->ttag);
  return v;
}

TEST(DPlist, SharedSampleDiesWithLastList) {
  int deaths = 0;
  Probe* p = new Probe(1.0, &deaths);
  auto* a = new DPlist<Probe>;
  DPlist<Probe> b;
  a->push_back(p);
  b.push_back(p);
  b.push_back(new Probe(2.0, &deaths));
  EXPECT_EQ(p->refCount, 2);
  delete a;
  EXPECT_EQ(deaths, 0);
  b.erase(b.begin());
  EXPECT_EQ(deaths, 1);
  b.pop_back();
  EXPECT_EQ(deaths, 2);
  EXPECT_THROW(b.pop_back(), dlist_base_iter::OutOfBounds);
  EXPECT_EQ(b.front(), nullptr);
}

TEST(DPlist, IteratorBounds) {
  int deaths = 0;
  DPlist<Probe> l;
  DPlist_iter<Probe> e = l.begin();
  EXPECT_FALSE(e != l.end());  // empty: begin is the end
  EXPECT_THROW(*e, dlist_base_iter::OutOfBounds);
  EXPECT_EQ(e(), nullptr);
  DPlist_iter<Probe> none;
  EXPECT_THROW(none(), dlist_base_iter::OutOfBounds);

  for (int i = 0; i < 3; ++i) l.push_back(new Probe(i, &deaths));
  DPlist_iter<Probe> it = l.begin();
  EXPECT_EQ((it++)->ttag, 0.0);
  EXPECT_EQ((*++it)->ttag, 2.0);
  ++it;  // past the last node: the end
  EXPECT_FALSE(it != l.end());
  EXPECT_EQ(it - l.begin(), 3);
  EXPECT_THROW(++it, dlist_base_iter::OutOfBounds);
  EXPECT_THROW(*it, dlist_base_iter::OutOfBounds);

  // Erasing gives the following position; erasing the last gives the end.
  DPlist_iter<Probe> after = l.erase(++l.begin());
  EXPECT_EQ((*after)->ttag, 2.0);
  EXPECT_EQ(after.position(), 1);
  EXPECT_FALSE(l.erase(after) != l.end());
  EXPECT_EQ(deaths, 2);
  DPlist<Probe> other;
  EXPECT_THROW(other.insert(l.begin(), nullptr), dlist_base_iter::OutOfBounds);
}

TEST(DPlist, IncreasingInsertKeepsArrivalOrderOfEqualKeys) {
  int deaths = 0;
  DPlist<Probe> fromEnd, fromBegin;
  std::vector<Probe*> made;
  for (double t : {5, 1, 3, 3, 9, 0, 5, 7}) {
    made.push_back(new Probe(t, &deaths));
    fromEnd.IncreasingListInsertFromEnd(made.back());
    fromBegin.IncreasingListInsertFromBegin(made.back());
  }
  const std::vector<Probe*> want = {made[5], made[1], made[2], made[3], made[0], made[6], made[7], made[4]};
  EXPECT_EQ(samples(fromEnd), want);
  EXPECT_EQ(samples(fromBegin), want);
}

TEST(DPlist, Splice) {
  int deaths = 0;
  DPlist<Probe> a, b;
  for (int i = 0; i < 5; ++i) a.push_back(new Probe(i, &deaths));
  for (int i = 10; i < 12; ++i) b.push_back(new Probe(i, &deaths));
  splice(b.begin(), a, ++a.begin(), ++(++(++a.begin())));  // [1, 3) to b's front
  EXPECT_EQ(times(b), (std::vector<double>{1, 2, 10, 11}));
  EXPECT_EQ(times(a), (std::vector<double>{0, 3, 4}));
  splice(b.end(), a, a.begin(), ++a.begin());  // a's first node to b's back
  EXPECT_EQ(times(b), (std::vector<double>{1, 2, 10, 11, 0}));
  splice(b.end(), a);
  EXPECT_TRUE(a.empty());
  splice(a.end(), b);  // onto an empty list
  EXPECT_EQ(times(a), (std::vector<double>{1, 2, 10, 11, 0, 3, 4}));
  EXPECT_EQ(b.size(), 0);
  EXPECT_EQ(deaths, 0);
}

TEST(DlistBase, InsertAndEraseRules) {
  dlist_base l;
  dlink* x = new dlink;
  EXPECT_THROW(l.insert(x, x), dlist_base_iter::OutOfBounds);  // pos on an empty list
  l.push_back(x);
  dlink y;
  EXPECT_THROW(l.erase(&y), dlist_base_iter::OutOfBounds);  // not the only node
  l.insert(x, &y);  // before the first: becomes first
  EXPECT_EQ(l.front(), &y);
  l.erase(&y);
  EXPECT_EQ(l.front(), x);
}

TEST(SampleStream, KindsAndHandOver) {
  int deaths = 0;
  SampleStream<Probe> s;
  EXPECT_EQ(s.Pop(2), nullptr);  // empty: null whatever the kind
  s.Push(1, new Probe(1, &deaths));
  s << new Probe(2, &deaths);  // kind 1 from the push
  Probe stray(3, &deaths);
  EXPECT_THROW(s.Push(2, &stray), SampleStream<Probe>::SampleTypeMisMatch);
  EXPECT_EQ(stray.refCount, 0);  // not taken
  EXPECT_THROW(s.Pop(2), SampleStream<Probe>::SampleTypeMisMatch);
  DPlist<Probe>* l = s.Pop(1);
  ASSERT_NE(l, nullptr);
  EXPECT_EQ(l->size(), 2);
  EXPECT_TRUE(s.empty());
  delete l;
  EXPECT_EQ(deaths, 2);

  // A new kind once empty; >> appends to what the caller has.
  s << 2 << new Probe(4, &deaths) << new Probe(5, &deaths);
  DPlist<Probe> out;
  out.push_back(new Probe(0, &deaths));
  EXPECT_THROW(s >> 1 >> out, SampleStream<Probe>::SampleTypeMisMatch);
  s >> 2 >> out;
  EXPECT_EQ(times(out), (std::vector<double>{0, 4, 5}));
  s.Push(3, new Probe(6, &deaths));  // left in the stream: freed with it
}

TEST(DataArray, EightByteUnits) {
  DataArray<char> a(8);
  EXPECT_EQ(a.getAllocNbytes(), 8);
  const char nine[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  a.copyFrom(nine, 9);
  EXPECT_EQ(a.getAllocNbytes(), 16);
  EXPECT_EQ(a.size(), 9);
  EXPECT_EQ(a[8], 9);
  a.copyFrom(nine, 3);  // shrinking keeps the storage
  EXPECT_EQ(a.getAllocNbytes(), 16);
  EXPECT_EQ(a.getNbytes(), 3);

  DataArray<float> f(3);
  EXPECT_EQ(f.getAllocSize(), 4);
  const float v[3] = {1.5f, -2.0f, 3.25f};
  f.copyFrom(v, 3);
  DataArray<float> g(f);
  EXPECT_NE(static_cast<float*>(g), static_cast<float*>(f));
  g.setNbytes(40);  // growing keeps what is there
  EXPECT_EQ(g.size(), 10);
  EXPECT_EQ(g[2], 3.25f);
  EXPECT_EQ(g[9], 0.0f);
  EXPECT_EQ(static_cast<const unsigned char*>(g)[0], reinterpret_cast<const unsigned char*>(v)[0]);
  g.expand(100);
  EXPECT_EQ(g.getAllocNbytes(), 400);
  EXPECT_EQ(g.size(), 10);
}

}  // namespace
