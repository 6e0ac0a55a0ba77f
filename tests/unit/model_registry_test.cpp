// The class registry and line tables: code index <-> line mapping, the three
// class-name forms, the load message, method lookup through superclasses,
// the class filters, and lazy loading against a scripted VM (including method
// ids above 2^31 travelling back to the VM unchanged).
// The tables of byte literals keep their hand layout:
// clang-format off
#include <optional>

#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

using Lines = std::vector<std::pair<double, double>>;

const Lines kExample{{0, 10}, {5, 11}, {9, 13}};

TEST(ModelLineTable, CodeIndexToLineAndBack)
{
    const struct { Lines table; double index; std::optional<double> line; } toLine[] = {
        {kExample, 0, 10}, {kExample, 3, 10}, {kExample, 7, 11}, {kExample, 9, 13},
        {kExample, 12, std::nullopt}, // past the last entry: no line (intended)
        {{{4, 20}, {8, 21}}, 1, 20},  // before the first entry: the first line
        {{{5, 11}, {0, 10}}, 0, 11},  // table order, never sorted
        {{}, 0, std::nullopt},
    };
    for (const auto& row : toLine) {
        JXMethod m;
        m.SetLineTable(lineTable(row.table));
        JDWPJLocation at;
        at.Index = row.index;
        double line = -99;
        EXPECT_EQ(m.LocationToSrcLine(at, line), row.line.has_value()) << "index " << row.index;
        EXPECT_EQ(line, row.line.value_or(-99)) << "index " << row.index << " (unchanged when not found)";
    }

    const struct { Lines table; double line; std::optional<double> index; } toIndex[] = {
        {kExample, 11, 5},
        {kExample, 12, std::nullopt}, // no search for the next line with code
        {{{8, 12}, {0, 10}, {4, 12}}, 12, 8}, // first in table order
    };
    for (const auto& row : toIndex) {
        JXMethod m;
        m.ClassID = 0x33;
        m.MethodID = 0x7f0000001234;
        m.SetLineTable(lineTable(row.table));
        JDWPJLocation at;
        ASSERT_EQ(m.SrcLineToLocation(row.line, at), row.index.has_value()) << "line " << row.line;
        if (row.index) {
            EXPECT_EQ(std::tuple(at.ClassTypeTag, at.ClassID, at.MethodID, at.Index),
                      std::tuple(TT_CLASS, 0x33, 0x7f0000001234, *row.index));
        }
    }
}

using ModelRegistry = ModelTest;

TEST_F(ModelRegistry, NameFormsFindTheSameClassAndLoadsAreAnnounced)
{
    auto cls = registerClass(17, "Lpkg/Name;");
    const std::pair<const char*, bool> rows[] = {
        {"Lpkg/Name;", true}, {"pkg/Name", true},   {"pkg/name", true},   {"L;", false},
        {"", false},          {"Lpkg/Name", false}, {"pkg/Other", false},
    };
    for (const auto& [query, found] : rows)
        EXPECT_EQ(jvm()->getClassByName(query, false), found ? cls : nullptr) << query;
    // The two-character signature gives none even when asked to add it.
    EXPECT_EQ(jvm()->getClassByName("L;", true), nullptr);
    EXPECT_EQ(jvm()->getClassByID(17), cls);
    EXPECT_EQ(jvm()->getClassByID(0, true), nullptr);
    EXPECT_TRUE(cls->equalName("Lpkg/Name;"));
    EXPECT_FALSE(cls->equalName("pkg/name"));
    EXPECT_EQ(jvm()->classCount(), 1) << "one class under two keys";

    // The load message once, in display form, none for generated classes.
    registerClass(2, "Lcom/acme/app/Main;", true);
    registerClass(3, "Lpkg/Name$1;", true);
    registerClass(4, "Lpkg/Quiet;", false);
    EXPECT_FALSE(jvm()->addClass(std::make_shared<JXClass>(), true)) << "id 0 and no name";
    EXPECT_FALSE(jvm()->addClass(nullptr, true));
    EXPECT_EQ(log->debug, (std::vector<std::string>{" *** Load com#acme#app#Main"}));
    EXPECT_EQ(jvm()->classCount(), 4);
    EXPECT_TRUE(vm->commands().empty());
}

TEST_F(ModelRegistry, MethodWithoutParamsIgnoresCaseAndClimbsTheHierarchy)
{
    auto base = registerClass(1, "Lpkg/Base;");
    base->SuperClassID = 0; // top of this hand-made hierarchy
    addMethod(base, 10, "Main", "([Ljava/lang/String;)V");
    addMethod(base, 11, "$Run", "()V");
    auto derived = registerClass(2, "Lpkg/Derived;");
    derived->SuperClassID = 1;
    addMethod(derived, 20, "other", "()V", {{0, 20}, {3, 22}});
    addMethod(derived, 21, "OTHER", "(I)V", {{0, 22}, {6, 30}});

    auto idOf = [](const std::shared_ptr<JXMethod>& m) { return m ? m->MethodID : -1.0; };
    // "RUN" finds "$Run": the marker goes in front; the first name match wins.
    const std::pair<const char*, double> byName[] = {{"main", 10}, {"RUN", 11}, {"Other", 20}, {"missing", -1}};
    for (const auto& [name, id] : byName)
        EXPECT_EQ(idOf(derived->JMethodWithoutParams(name)), id) << name;
    EXPECT_EQ(derived->RealClassName(), "Lpkg/Base;");
    EXPECT_EQ(base->JMethod("Main"), nullptr) << "JMethod needs name and signature";
    EXPECT_EQ(idOf(derived->JMethod("OTHER(I)V")), 21);
    EXPECT_EQ(derived->JMethodID(10), nullptr) << "ids are per class";

    // A line in two methods resolves to the first method in table order.
    JDWPJLocation at;
    ASSERT_TRUE(derived->SrcLineToLocation(22, at));
    EXPECT_EQ(std::pair(at.MethodID, at.Index), std::pair(20.0, 3.0));
    ASSERT_TRUE(derived->SrcLineToLocation(30, at));
    EXPECT_EQ(at.MethodID, 21);
    EXPECT_FALSE(derived->SrcLineToLocation(25, at));
    EXPECT_EQ(registerClass(3, "Ljava/lang/Object;")->SuperClass(), nullptr);
    EXPECT_TRUE(vm->commands().empty()) << "java.lang.Object's superclass is not asked for";
}

TEST_F(ModelRegistry, ClassFilters)
{
    // Names match exactly; a '*' at either end makes a pattern, written
    // dotted or in the internal form.
    jvm()->setTargetClassName({"Module1", "Class1", "VB/Debug", "com.acme.*", "*.Main", "org/x/*"});
    const std::pair<const char*, bool> rows[] = {
        {"Module1", true}, {"module1", false}, {"Module", false}, {"VB/Debug", false}, {"", false},
        {"com/acme/App", true}, {"com/acme/sub/App$1", true}, {"com/acmex/App", false}, {"com/Acme/App", false},
        {"app/Main", true}, {"app/MainX", false}, {"Main", false}, {"org/x/Y", true}, {"org/y/X", false},
    };
    for (const auto& [name, expected] : rows)
        EXPECT_EQ(jvm()->isPossibleClass(name), expected) << name;
    jvm()->setTargetClassName({"*"});
    EXPECT_TRUE(jvm()->isPossibleClass("any/Class"));
    EXPECT_FALSE(jvm()->isPossibleClass("VB/Debug")) << "the debug-print hook is never the program";
}

// --- lazy loading against the scripted VM ---

constexpr uint64_t kBigMethodID = 0x00007f3a9c012345; // above 2^31, as a 64-bit VM hands out

TEST_F(ModelRegistry, MethodsAreAskedAgainAfterAnEmptyAnswerFieldsAfterAnErrorAndBigIdsSurvive)
{
    auto cls = registerClass(0x20, "Lpkg/Lazy;");
    int asked = 0;
    vm->on(2, 5, [&](const SentCommand&, std::string& out, uint16_t&) {
        out = ++asked == 1 ? be32(0)
                           : be32(2) + be64(kBigMethodID) + jstr("Main") + jstr("([Ljava/lang/String;)V") + be32(9) +
                                 be64(7) + jstr("helper") + jstr("(I)I") + be32(2);
        return true;
    });
    EXPECT_EQ(cls->JMethodWithoutParams("main"), nullptr);
    auto main = cls->JMethodWithoutParams("main");
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(main->MethodID, static_cast<double>(kBigMethodID));
    EXPECT_EQ(main->OwnerClass(), cls);
    EXPECT_NE(cls->JMethod("helper(I)I"), nullptr);
    EXPECT_EQ(payloadsOf(2, 5), (std::vector{be64(0x20), be64(0x20)})) << "a loaded table is not asked again";

    vm->onPayload(6, 1, be64(0) + be64(30) + be32(2) + be64(0) + be32(7) + be64(4) + be32(8));
    JDWPJLocation at;
    ASSERT_TRUE(cls->SrcLineToLocation(8, at));
    EXPECT_EQ(std::pair(at.MethodID, at.Index), std::pair(static_cast<double>(kBigMethodID), 4.0));
    EXPECT_TRUE(cls->SrcLineToLocation(7, at));
    EXPECT_EQ(payloadsOf(6, 1), std::vector{be64(0x20) + be64(kBigMethodID)}) << "line tables are kept";

    // Variable slots come from the variable table, by name in any case.
    auto run = addMethod(cls, 3, "run", "()V");
    vm->onPayload(6, 2,
                  be32(1) + be32(2) + be64(0) + jstr("args") + jstr("[Ljava/lang/String;") + be32(20) + be32(0) +
                      be64(2) + jstr("count") + jstr("I") + be32(18) + be32(1));
    EXPECT_EQ(run->getVarSlot("COUNT").vt_slot, 1);
    EXPECT_EQ(run->getVarSlot("count").vt_signature, "I");
    EXPECT_EQ(run->getVarSlot("nothing").vt_name, "");
    EXPECT_EQ(payloadsOf(6, 2), std::vector{be64(0x20) + be64(3)});

    // A class without fields (java.lang.Object ends every walk up a
    // hierarchy) is asked for them once; one the VM could not answer for is
    // asked again.
    vm->onPayload(2, 4, "", 22); // CLASS_NOT_PREPARED
    EXPECT_TRUE(cls->fields().empty());
    vm->onPayload(2, 4, be32(0));
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(cls->fields().empty());
    EXPECT_EQ(cls->JField("anything"), nullptr);
    EXPECT_EQ(countOf(2, 4), 2u);
}

TEST_F(ModelRegistry, ClassesBySignatureAndByObjectAreAskedOnce)
{
    vm->onPayload(1, 2, be32(1) + u8(1) + be64(0x55) + be32(7));
    vm->onPayload(2, 1, jstr("Lpkg/Found;"));
    auto cls = jvm()->getClassByName("Lpkg/Found;", true);
    ASSERT_NE(cls, nullptr);
    EXPECT_EQ(std::tuple(cls->ClassID, cls->ClassStatus, cls->ClassName()), std::tuple(0x55, 7, "pkg/Found"));
    EXPECT_EQ(payloadsOf(1, 2), std::vector{jstr("Lpkg/Found;")});
    EXPECT_EQ(payloadsOf(2, 1), std::vector{be64(0x55)});
    vm->clearCommands();
    EXPECT_EQ(jvm()->getClassByName("pkg/Found", true), cls);
    EXPECT_EQ(jvm()->getClassByID(0x55, true), cls);
    EXPECT_TRUE(vm->commands().empty());
    vm->onPayload(1, 2, be32(0));
    EXPECT_EQ(jvm()->getClassByName("Lpkg/NotLoaded;", true), nullptr);
    EXPECT_EQ(jvm()->classCount(), 1);
    // An internal name is asked as the signature the VM knows.
    EXPECT_EQ(jvm()->getClassByName("pkg/Internal", true), nullptr);
    EXPECT_EQ(vm->commandsOf(1, 2).back().payload, jstr("Lpkg/Internal;"));

    vm->onPayload(9, 1, u8(1) + be64(0x66));
    vm->onPayload(2, 1, jstr("Lpkg/Obj;"));
    for (int twice = 0; twice < 2; ++twice)
        EXPECT_EQ(jvm()->classIDFromObjectID(0x1234), 0x66);
    EXPECT_EQ(payloadsOf(9, 1), std::vector{be64(0x1234)});
    ASSERT_NE(jvm()->getClassByObjectID(0x1234), nullptr);
    EXPECT_EQ(jvm()->getClassByObjectID(0x1234)->ClassSignature, "Lpkg/Obj;");
    EXPECT_EQ(jvm()->classIDFromObjectID(0), 0) << "the null object";
    EXPECT_EQ(jvm()->getClassByObjectID(0), nullptr);
    EXPECT_EQ(countOf(9, 1), 1u) << "never asked about: the VM would crash";

    // An array of a primitive type has no name, and is still one class.
    vm->clearCommands();
    for (const double array : {0x2001, 0x2002}) {
        vm->onPayload(9, 1, u8(3) + be64(0x67));
        if (array == 0x2001)
            vm->onPayload(2, 1, jstr("[I"));
        ASSERT_NE(jvm()->getClassByObjectID(array), nullptr);
        EXPECT_EQ(jvm()->getClassByObjectID(array)->ClassSignature, "[I");
    }
    EXPECT_EQ(countOf(9, 1), 2u) << "one object, one question";
    EXPECT_EQ(countOf(2, 1), 1u) << "the signature of a class never changes";
}

TEST_F(ModelRegistry, SuperclassIsFetchedOnceAndAnErrorIsAskedAgain)
{
    auto child = registerClass(0x70, "Lpkg/Child$1;");
    vm->onPayload(3, 1, be64(0x71));
    vm->on(2, 1, [](const SentCommand& c, std::string& out, uint16_t&) {
        out = jstr(c.payload == be64(0x71) ? "Lpkg/Parent;" : c.payload == be64(0x70) ? "Lpkg/Child$1;" : "Lpkg/Plain;");
        return true;
    });
    auto parent = child->SuperClass();
    ASSERT_NE(parent, nullptr);
    EXPECT_EQ(parent->ClassID, 0x71);
    EXPECT_EQ(jvm()->getClassByName("pkg/Parent"), parent) << "entered in the class table";
    EXPECT_EQ(child->SuperClass(), parent);
    EXPECT_EQ(payloadsOf(3, 1), std::vector{be64(0x70)});
    // A generated class stands for the class it extends.
    EXPECT_EQ(jvm()->getEventClassFromClass(child), parent);
    auto plain = registerClass(0x72, "Lpkg/Plain;");
    EXPECT_EQ(jvm()->getEventClassFromClass(plain), plain);

    auto err = registerClass(0x80, "Lpkg/Err;");
    vm->clearCommands();
    vm->onPayload(3, 1, "", 21 /* INVALID_CLASS */);
    for (int twice = 0; twice < 2; ++twice)
        EXPECT_EQ(err->SuperClass(), nullptr);
    EXPECT_EQ(countOf(3, 1), 2u);
    EXPECT_EQ(err->SuperClassID, -1);
}

} // namespace
