// Checks every field of the command schema against field_table.inc. The lite
// runtime has no descriptors, so each row is checked by behaviour: probe
// values are parsed from hand-made wire bytes and read back through the
// generated accessors, and the same values written through the setters must
// give the expected bytes. A wrong name fails to compile; a wrong number,
// integer width, signedness or label fails at run time.
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "qorpkcs11/proto/pkcs11command.pb.h"
#include "wire_format.h"

namespace {

enum class Label { optional, required, repeated };

// Column types of the table, spelled as in the schema.
namespace col {
using namespace pkcs11;  // message-typed fields name their message
using int32 = std::int32_t;
using int64 = std::int64_t;
using uint32 = std::uint32_t;
struct string {};
struct bytes {};
}  // namespace col

template <class T>
constexpr bool kIsMessage = std::is_base_of_v<google::protobuf::MessageLite, T>;

// How a column type looks on the wire and through the accessors.
template <class T, class = void>
struct Column;

template <class T>
struct Column<T, std::enable_if_t<std::is_integral_v<T>>> {
    using Value = T;
    static constexpr wire::WireType kWire = wire::kVarint;
    // 2^32-1 reads as -1 only in a 32-bit signed field; 2^32+1 keeps its high
    // bit only in a 64-bit field. Together they tell int32, uint32, int64 and
    // bool apart.
    static std::uint64_t raw(int i) { return i == 0 ? 0xFFFFFFFFull : 0x100000001ull; }
    static std::string input(int i) { return wire::varint(raw(i)); }
    static Value expected(int i) { return static_cast<Value>(raw(i)); }
    // Negative int32 values go out sign-extended to ten bytes.
    static std::string canonical(int i) { return wire::varint(static_cast<std::uint64_t>(expected(i))); }
    static bool same(Value a, Value b) { return a == b; }
};

template <class T>
struct Column<T, std::enable_if_t<std::is_same_v<T, col::string> || std::is_same_v<T, col::bytes>>> {
    using Value = std::string;
    static constexpr wire::WireType kWire = wire::kLengthDelimited;
    // Binary content: neither kind may validate or trim it.
    static Value expected(int i) { return i == 0 ? std::string("\0\xff" "A", 3) : std::string("second"); }
    static std::string input(int i) { return wire::varint(expected(i).size()) + expected(i); }
    static std::string canonical(int i) { return input(i); }
    static bool same(const Value& a, const Value& b) { return a == b; }
};

template <class T>
struct Column<T, std::enable_if_t<kIsMessage<T>>> {
    using Value = T;
    static constexpr wire::WireType kWire = wire::kLengthDelimited;
    static Value expected(int) { return T(); }
    static std::string input(int) { return wire::varint(0); }
    static std::string canonical(int i) { return input(i); }
    static bool same(const T& a, const T& b) { return a.SerializePartialAsString() == b.SerializePartialAsString(); }
};

// One accessor adapter per row. The member templates keep the accessor names
// dependent, so only the branches that fit the row's label and type are
// instantiated. Bytes are set through the (const void*, size) overload that
// string fields lack.
#define QOR_ACCESS(M, f, T, label)                                                        \
    struct Acc_##M##_##f {                                                                \
        using Msg = pkcs11::M;                                                            \
        using Type = T;                                                                   \
        static constexpr bool kList = Label::label == Label::repeated;                    \
        template <class X>                                                                \
        static int count(const X& m) {                                                    \
            if constexpr (kList) return m.f##_size();                                     \
            else return m.has_##f() ? 1 : 0;                                             \
        }                                                                                 \
        template <class X>                                                                \
        static decltype(auto) get(const X& m, [[maybe_unused]] int i) {                   \
            if constexpr (kList) return m.f(i);                                           \
            else return m.f();                                                            \
        }                                                                                 \
        template <class X, class... A>                                                    \
        static void assign(X& m, const A&... a) {                                         \
            if constexpr (kList) m.add_##f(a...);                                         \
            else m.set_##f(a...);                                                         \
        }                                                                                 \
        template <class X, class V>                                                       \
        static void put(X& m, const V& v) {                                               \
            if constexpr (kIsMessage<Type> && kList) *m.add_##f() = v;                    \
            else if constexpr (kIsMessage<Type>) *m.mutable_##f() = v;                    \
            else if constexpr (std::is_same_v<Type, bytes>) assign(m, static_cast<const void*>(v.data()), v.size()); \
            else assign(m, v);                                                            \
        }                                                                                 \
    };

namespace col {
#define FIELD(M, f, n, T, label) QOR_ACCESS(M, f, T, label)
#include "field_table.inc"
#undef FIELD
}  // namespace col

struct Row {
    const char* message;
    const char* field;
    std::uint32_t number;
    Label label;
    const char* type;
    void (*check)(const Row&);
    std::string (*wire)(const Row&);                 // the row's probe values as a peer sends them
    bool (*initialized)(const std::string& bytes);   // parses into the row's message
    std::string (*unknown)(const std::string& bytes);
};

int valueCount(const Row& row) { return row.label == Label::repeated ? 2 : 1; }

template <class A>
std::string fieldWire(const Row& row) {
    using C = Column<typename A::Type>;
    std::string out;
    for (int i = 0; i < valueCount(row); ++i) out += wire::tag(row.number, C::kWire) + C::input(i);
    return out;
}

template <class A>
void checkField(const Row& row) {
    using Msg = typename A::Msg;
    using C = Column<typename A::Type>;
    using Got = std::decay_t<decltype(A::get(std::declval<const Msg&>(), 0))>;
    EXPECT_TRUE((std::is_same_v<Got, typename C::Value>)) << "accessor returns another type";

    const int values = valueCount(row);
    std::string canonical;
    for (int i = 0; i < values; ++i) canonical += wire::tag(row.number, C::kWire) + C::canonical(i);

    Msg parsed;
    ASSERT_TRUE(parsed.ParsePartialFromString(fieldWire<A>(row)));
    ASSERT_EQ(A::count(parsed), values) << "the field does not own this number and wire type";
    for (int i = 0; i < values; ++i)
        EXPECT_TRUE(C::same(A::get(parsed, i), C::expected(i))) << "value " << i << " decodes with another width or sign";
    EXPECT_EQ(wire::hex(parsed.SerializePartialAsString()), wire::hex(canonical));

    Msg built;
    for (int i = 0; i < values; ++i) A::put(built, C::expected(i));
    EXPECT_EQ(wire::hex(built.SerializePartialAsString()), wire::hex(canonical));
}

template <class M>
bool isInitialized(const std::string& bytes) {
    M m;
    return m.ParsePartialFromString(bytes) && m.IsInitialized();
}

template <class M>
std::string unknownAfterParse(const std::string& bytes) {
    M m;
    EXPECT_TRUE(m.ParsePartialFromString(bytes));
    return m.unknown_fields();
}

const Row kRows[] = {
#define FIELD(M, f, n, T, label)                                                                  \
    {#M, #f, n, Label::label, #T, &checkField<col::Acc_##M##_##f>, &fieldWire<col::Acc_##M##_##f>, \
     &isInitialized<pkcs11::M>, &unknownAfterParse<pkcs11::M>},
#include "field_table.inc"
#undef FIELD
};

std::string describe(const Row& row) {
    static const char* const kLabels[] = {"optional", "required", "repeated"};
    return std::string(row.message) + " { " + kLabels[static_cast<int>(row.label)] + " " + row.type + " " + row.field +
           " = " + std::to_string(row.number) + "; }";
}

std::map<std::string, std::vector<const Row*>> rowsByMessage() {
    std::map<std::string, std::vector<const Row*>> out;
    for (const Row& row : kRows) out[row.message].push_back(&row);
    return out;
}

TEST(CommandSchema, EveryFieldHasTheTabledNumberTypeAndLabel) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(describe(row));
        row.check(row);
    }
}

TEST(CommandSchema, RequiredFieldsAreExactlyTheTabledOnes) {
    for (const auto& [message, rows] : rowsByMessage()) {
        std::string required;
        for (const Row* row : rows)
            if (row->label == Label::required) required += row->wire(*row);
        for (const Row* row : rows) {
            SCOPED_TRACE(describe(*row));
            // An empty submessage must not be missing anything either.
            EXPECT_TRUE(row->initialized(required + row->wire(*row)));
            if (row->label != Label::required) continue;
            std::string others;
            for (const Row* other : rows)
                if (other != row && other->label == Label::required) others += other->wire(*other);
            EXPECT_FALSE(row->initialized(others));
        }
    }
}

TEST(CommandSchema, NumbersOutsideTheTableAreUnknownFields) {
    constexpr std::uint32_t kScanUpTo = 128;
    for (const auto& [message, rows] : rowsByMessage()) {
        std::set<std::uint32_t> tabled;
        for (const Row* row : rows) tabled.insert(row->number);
        for (std::uint32_t n = 1; n <= kScanUpTo; ++n) {
            if (tabled.count(n) != 0) continue;
            SCOPED_TRACE(message + " field " + std::to_string(n));
            // Both wire types, so a field of any type at this number is caught.
            for (const std::string& probe : {wire::varintField(n, 1), wire::lengthField(n, "x")})
                EXPECT_EQ(wire::hex(rows.front()->unknown(probe)), wire::hex(probe));
        }
    }
}

}  // namespace
