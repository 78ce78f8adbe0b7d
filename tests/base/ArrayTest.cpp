#include "base/Array.h"

#include "support/ExpectThrows.h"

#include <cstdlib>
#include <memory>

namespace {

Array<int> threeInts() {
    Array<int> a;
    for (int v : {10, 20, 30})
        a.append(v);
    return a;
}

} // namespace

TEST(Array, CapacityAlwaysEqualsCount) {
    Array<int> a = threeInts();
    EXPECT_EQ(3, a.getCount());
    EXPECT_EQ(3, a.getCapacity());
    a.resize(5);
    EXPECT_EQ(5, a.getCapacity());
    EXPECT_EQ(0, a[4]); // new slots are value-initialised
    EXPECT_EQ(30, a[2]);
    a.resize(1);
    EXPECT_EQ(1, a.getCapacity());
    EXPECT_EQ(10, a[0]);
}

TEST(Array, ReadsAreChecked) {
    Array<int> a = threeInts();
    expectThrows<BadIndexException>([&] { a[3]; }, "Array::operator[]");
    expectThrows<BadIndexException>([&] { a[-1]; }, "Array::operator[]");
    expectThrows<IllegalArgumentException>([&] { a.resize(-1); }, "Array::resize");
}

TEST(Array, RemoveIsLenientAtTheTop) {
    Array<int> a = threeInts();
    a.remove(5);
    ASSERT_EQ(2, a.getCount());
    EXPECT_EQ(20, a[1]);
    a.remove(0);
    ASSERT_EQ(1, a.getCount());
    EXPECT_EQ(20, a[0]);
    a.remove(0);
    EXPECT_EQ(0, a.getCount());
    expectThrows<IllegalArgumentException>([&] { a.remove(0); }, "Array::resize");
}

TEST(Array, RemoveInTheMiddleKeepsOrder) {
    Array<int> a = threeInts();
    a.append(40);
    a.remove(1);
    ASSERT_EQ(3, a.getCount());
    EXPECT_EQ(10, a[0]);
    EXPECT_EQ(30, a[1]);
    EXPECT_EQ(40, a[2]);
    expectThrows<BadIndexException>([&] { a.remove(-1); }, "Array::operator[]");
    EXPECT_EQ(3, a.getCount());
}

TEST(Array, InsertShiftsUpAndReturnsTheSlot) {
    Array<int> a = threeInts();
    int& slot = a.insert(15, 1);
    EXPECT_EQ(15, slot);
    EXPECT_EQ(&a[1], &slot);
    int expected[] = {10, 15, 20, 30};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(expected[i], a[i]);
    a.insert(40, 4);
    EXPECT_EQ(40, a[4]);
    a.insert(5, 0);
    EXPECT_EQ(5, a[0]);
    expectThrows<BadIndexException>([&] { a.insert(1, 7); }, "Array::operator[]");
    EXPECT_EQ(6, a.getCount());
}

TEST(Array, AppendingAnElementOfItselfIsSafe) {
    Array<std::shared_ptr<int>> a;
    a.append(std::make_shared<int>(4));
    a.append(a[0]);
    EXPECT_EQ(a[0], a[1]);
    EXPECT_EQ(2, a[0].use_count());
}

TEST(Array, CopiesAreIndependent) {
    Array<int> a = threeInts();
    Array<int> b;
    b = a;
    b[0] = 99;
    EXPECT_EQ(10, a[0]);
    b = b;
    EXPECT_EQ(99, b[0]);
}

TEST(Array, ResizeReleasesDroppedElements) {
    auto probe = std::make_shared<int>(0);
    Array<std::shared_ptr<int>> a;
    a.append(probe);
    a.append(probe);
    EXPECT_EQ(3, probe.use_count());
    a.resize(1);
    EXPECT_EQ(2, probe.use_count());
    a.clear();
    EXPECT_EQ(1, probe.use_count());
}

TEST(Array, LessThanSortsWithQsort) {
    Array<int> a;
    for (int v : {3, -1, 2, 2})
        a.append(v);
    std::qsort(a.begin(), a.getCount(), sizeof(int), Array<int>::less_than);
    EXPECT_EQ(-1, a[0]);
    EXPECT_EQ(2, a[1]);
    EXPECT_EQ(3, a[3]);
}
