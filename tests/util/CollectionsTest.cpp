#include "harness/test.h"
#include "util/Map.h"
#include "util/Stack.h"
#include "util/Vector.h"

namespace Quenvale::Interceptor::SDK::Util {
namespace {

template <class T>
std::string keysOf(Map<T>& map) {
    std::string keys;
    typename Map<T>::Iterator it(&map);
    while (it.hasNext()) keys += it.next()->key.c_str();
    return keys;
}

struct Counted {
    static inline int alive = 0;
    Counted() { ++alive; }
    ~Counted() { --alive; }
};

TEST(Map, KeepsInsertionOrderThroughGrowthErasureAndAWalk) {
    const std::string keys = "abcdefghijklmnopq";
    Map<int> map;
    for (const char key : keys) map.put(String(&key, 1), key);
    EXPECT_EQ(map.bucketCount(), 32) << "the 17th entry doubles the table";
    for (const char key : keys) EXPECT_EQ(map.find(String(&key, 1)), key);
    EXPECT_EQ(keysOf(map), keys);
    EXPECT_TRUE(map.erase("c"));
    EXPECT_FALSE(map.erase("c"));
    map.put("a", 100);
    EXPECT_EQ(keysOf(map), "abdefghijklmnopq") << "a replaced value keeps its place";
    Map<int>::Iterator it(&map);
    it.next();
    it.next();
    it.remove();
    EXPECT_STREQ(it.next()->key.c_str(), "d") << "a walk goes on behind what it removed";
    EXPECT_EQ(keysOf(map), "adefghijklmnopq");
    EXPECT_EQ(map.size(), 15);
    map.clear();
    EXPECT_EQ(map.bucketCount(), 32) << "clear keeps the number of buckets";
    EXPECT_TRUE(map.empty());
}

TEST(Map, ABoundedMapDropsItsHead) {
    for (int lru = 0; lru < 2; ++lru) {
        Map<Counted*> map(2, lru, 2);
        map.put("a", new Counted);
        map.put("b", new Counted);
        map.find("a");
        map.put("c", new Counted);
        EXPECT_EQ(keysOf(map), lru == 1 ? "ac" : "bc") << "a look-up counts only with LRU";
        map.put("c", new Counted);
        EXPECT_EQ(Counted::alive, 2) << "what is dropped or replaced is disposed of";
    }
    EXPECT_EQ(Counted::alive, 0);
    Map<String> one(2, 0, 1);
    one.put("a", "text");
    one.put("b", one.find("a"));
    EXPECT_TRUE(one.find("b") == "text") << "from the entry that it pushes out";
}

TEST(Map, CopiesClonesAndNullKeys) {
    Map<String> map;
    map.put("b", "1");
    map.insert(static_cast<const char*>(nullptr), "7");
    map.put("a", "2");
    EXPECT_STREQ(map.find(static_cast<const char*>(nullptr)).c_str(), "7");
    EXPECT_STREQ(map.find("").c_str(), "") << "a miss gives the blank and inserts nothing";
    EXPECT_TRUE(map.hasKey(String::NIL) && !map.hasKey(String::BLANK));
    map.erase(String::NIL);
    const std::unique_ptr<Map<String>> copy(map.copy());
    EXPECT_EQ(keysOf(*copy), "ba");
    EXPECT_FALSE(map.hasValue(copy->find("b"))) << "texts are compared by their buffer";
    EXPECT_TRUE(map.hasValue(map.find("b")));
    Map<String> none;
    Map<String> fromNone(&none);
    fromNone.put("x", "y");
    EXPECT_TRUE(fromNone.find("x") == "y") << "a clone of an empty map can be filled";
}

TEST(Map, EveryCharacterOfAKeyCountsAndItsSign) {
    for (std::size_t length = 0; length < 70; ++length) {
        const std::string key(length, 'k');
        EXPECT_NE(hashKey((key + 'k').c_str()), hashKey(key.c_str())) << length;
        for (std::size_t i = 0; i < length; ++i) {
            std::string other = key;
            other[i] = 'o';
            EXPECT_NE(hashKey(other.c_str()), hashKey(key.c_str())) << i << " of " << length;
        }
    }
    const Map<int> map;
    EXPECT_EQ(map.computeKey("ab", 1 << 30), (97UL * 65599 + 98) % (1UL << 30));
    EXPECT_EQ(map.computeKey("\xff", 7), 1U) << "minus one, modulo 2 to the 64";
    EXPECT_EQ(map.computeKey("a", 0), 97U % 16) << "of the present buckets";
}

TEST(List, IteratorStepsRemovesAndInsertsAndAStackPeeks) {
    List<int> list(0);
    EXPECT_TRUE(list.add(2));
    EXPECT_FALSE(list.add(3));
    EXPECT_TRUE(list.addToHead(1));
    List<int>::Iterator it(&list);
    EXPECT_EQ(it.next(), 1);
    it.remove();
    EXPECT_EQ(it.get(), 2);
    it.insert(9);
    std::string order;
    for (auto* n = list.getHead(); n != nullptr; n = n->next) order += std::to_string(n->data);
    EXPECT_EQ(order, "923");
    while (it.hasNext()) it.next();
    EXPECT_EQ(it.get(), 0) << "behind the end stands the blank item";
    it.remove();
    EXPECT_FALSE(list.contains(3)) << "from behind the end the tail goes";
    EXPECT_EQ(it.nextNode(), nullptr);
    EXPECT_EQ(it.get(), 9) << "from behind the end a step leads to the head";

    Stack<int> stack(0);
    EXPECT_EQ(stack.peek(), 0);
    stack.push(1);
    stack.push(2);
    EXPECT_EQ(stack.pop(), 2);
    EXPECT_EQ(stack.peek(), 1);
}

TEST(Vector, CapacityDoublesInsertPushesTheLastOutAndResizeDisposes) {
    Vector<String> v(0, 4);
    for (const char* text : {"a", "b", "c"}) v.add(text);
    EXPECT_EQ(v.capacity(), 4);
    v.insert(0, "d");
    EXPECT_EQ(v.capacity(), 8) << "a request that reaches it";
    EXPECT_EQ(v.size(), 3);
    EXPECT_EQ(v.get(0) + v.get(1) + v.get(2), "dab");
    v.clear();
    EXPECT_EQ(v.capacity(), 0);
    v.add("e");
    EXPECT_EQ(v.capacity(), 1);

    Vector<Counted*> owned(2, 8);
    for (int i = 0; i < 4; ++i) owned.add(new Counted);
    owned.resize(2);
    EXPECT_EQ(Counted::alive, 2);
    EXPECT_EQ(owned.capacity(), 2);
    owned.clear();
    EXPECT_EQ(Counted::alive, 0);
}

}  // namespace
}  // namespace Quenvale::Interceptor::SDK::Util
