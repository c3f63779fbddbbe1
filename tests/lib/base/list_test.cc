// Reference-counted sample lists, their iterators, sample streams, arrays.
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

// The times in list order, after checking that the circle is linked both
// ways and matches the count.
std::vector<double> times(DPlist<Probe>& l) {
  std::vector<double> v;
  for (DPlist_iter<Probe> it = l.begin(); it != l.end(); ++it) {
    EXPECT_EQ(it.node()->next->prev, it.node());
    v.push_back((*it)->ttag);
  }
  EXPECT_EQ(static_cast<int>(v.size()), l.size());
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
}

TEST(DPlist, IteratorBoundsInsertAndSplice) {
  int deaths = 0;
  DPlist<Probe> l, other;
  EXPECT_FALSE(l.begin() != l.end());  // empty: begin is the end
  for (double t : {5, 1, 3, 3, 0}) l.IncreasingListInsertFromEnd(new Probe(t, &deaths));
  for (double t : {4, 9, 2}) other.IncreasingListInsertFromBegin(new Probe(t, &deaths));
  EXPECT_EQ(times(l), (std::vector<double>{0, 1, 3, 3, 5}));
  DPlist_iter<Probe> it = l.begin();
  for (int i = 0; i < 5; ++i) ++it;  // past the last node: the end
  EXPECT_EQ(it - l.begin(), 5);
  EXPECT_FALSE(it != l.end());
  EXPECT_THROW(++it, dlist_base_iter::OutOfBounds);

  splice(other.begin(), l, ++l.begin(), ++(++(++l.begin())));  // [1, 3) to other's front
  EXPECT_EQ(times(other), (std::vector<double>{1, 3, 2, 4, 9}));
  splice(l.end(), other);
  EXPECT_EQ(times(l), (std::vector<double>{0, 3, 5, 1, 3, 2, 4, 9}));
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
  const char nine[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  a.copyFrom(nine, 9);
  EXPECT_EQ(a.getAllocNbytes(), 16);
  DataArray<float> f(3);
  const float v[2] = {1.5f, -2.0f};
  f.copyFrom(v, 2);
  DataArray<float> g(f);
  g.setNbytes(40);  // growing keeps what is there
  EXPECT_NE(static_cast<float*>(g), static_cast<float*>(f));
  EXPECT_EQ(g.size(), 10);
  EXPECT_EQ(g[1], -2.0f);
}

}  // namespace
