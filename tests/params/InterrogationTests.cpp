// The parameter list through IUIPropInterrogate(Ex): typed reads and writes
// through the component's members, list queries, ranges and named choices.
#include <gtest/gtest.h>

#include "params/PropList.h"
#include "tests/params/ArchiveProbe.h"
#include "tests/support/ModuleHost.h"
#include "text/REFString.h"

namespace {

/// A component that declares nothing by itself.
class CBareProps final : public CObject<CBareProps>, public IUIPropInterrogateImpl<CBareProps, IUIPropInterrogateEx, 10> {
    LUM_OBJECT_UNKNOWN(CBareProps)
public:
    using IUIPropInterrogateImpl::DeclareParameter;
    using IUIPropInterrogateImpl::m_Parameters;
};
const InterfaceEntry<CBareProps> CBareProps::kInterfaces[] = {InterfaceEntry<CBareProps>::End()};

SmartPtr<CBareProps> NewBare() { return CBareProps::New(); }

TEST(Interrogation, IntegerTypesTravelThroughTheirMembers) {
    SmartPtr<CArchiveProbe> probe = NewProbe();
    IUIPropInterrogateEx* props = Props(probe.Get());
    int32_t value = 0;

    EXPECT_EQ(S_OK, props->Control(ProbeByte, 0x1FF));  // low 8 bits
    EXPECT_EQ(0xFF, probe->m_Byte);
    EXPECT_EQ(1, props->Inquire(ProbeByte, &value));  // the flags word, not 0
    EXPECT_EQ(255, value);                            // zero-extended

    EXPECT_EQ(S_OK, props->Control(ProbeShort, 0x18000));
    EXPECT_EQ(-32768, probe->m_Short);
    EXPECT_EQ(2, props->Inquire(ProbeShort, &value));
    EXPECT_EQ(-32768, value);  // sign-extended

    EXPECT_EQ(3, props->Inquire(ProbeLong, &value)) << "type 0 is declared as type 3";

    EXPECT_EQ(S_OK, props->Control(ProbeFloat, PROPFloatBits(1.5f)));
    EXPECT_EQ(1.5f, probe->m_Float);

    // Doubles travel as the bit pattern of a float.
    EXPECT_EQ(S_OK, props->Control(ProbeDouble, PROPFloatBits(2.5f)));
    EXPECT_EQ(2.5, probe->m_Double);
    EXPECT_EQ(5, props->Inquire(ProbeDouble, &value));
    EXPECT_EQ(PROPFloatBits(2.5f), value);
    probe->m_Double = 0.1;
    props->Inquire(ProbeDouble, &value);
    EXPECT_EQ(PROPFloatBits(0.1f), value);

    // Strings have no integer form: Control ignores them, Inquire fails.
    probe->m_Label = Str(L"kept");
    EXPECT_EQ(S_OK, props->Control(ProbeLabel, 7));
    EXPECT_EQ(L"kept", TextOf(probe->m_Label.Get()));
    EXPECT_EQ(E_FAIL, props->Inquire(ProbeLabel, &value));
}

TEST(Interrogation, ListQueriesAndUnknownNumbers) {
    SmartPtr<CBareProps> bare = NewBare();
    int32_t low = -1, high = -1, count = -1;
    EXPECT_EQ(E_FAIL, bare->ParameterRange(PROP_LIST_QUERY, &low, &high)) << "empty list";
    EXPECT_EQ(0, low);
    EXPECT_EQ(0, high);
    EXPECT_EQ(E_INVALIDARG, bare->Control(1, 1));

    int32_t members[4] = {};
    const int32_t ids[] = {54, 60, 52, 55};
    for (int i = 0; i < 4; ++i) bare->DeclareParameter(ids[i], &members[i], 3);
    EXPECT_EQ(S_OK, bare->Inquire(PROP_LIST_QUERY, &count));
    EXPECT_EQ(4, count);
    EXPECT_EQ(S_OK, bare->ParameterRange(PROP_LIST_QUERY, &low, &high));
    EXPECT_EQ(52, low);
    EXPECT_EQ(60, high);
    EXPECT_EQ(S_OK, bare->ParameterRange(PROP_LIST_QUERY, nullptr, nullptr));

    int32_t value = 123;
    EXPECT_EQ(E_INVALIDARG, bare->Inquire(53, &value));
    EXPECT_EQ(E_INVALIDARG, bare->Control(53, 9));
    EXPECT_EQ(123, value);
    for (int32_t member : members) EXPECT_EQ(0, member);

    // A switch answers with its whole flags word and its range.
    int32_t on = 1;
    bare->DeclareParameter(70, &on, 0x13, 0, 1);
    EXPECT_EQ(0x13, bare->Inquire(70, &value));
    EXPECT_EQ(1, value);
    EXPECT_EQ(S_OK, bare->ParameterRange(70, &low, &high));
    EXPECT_EQ(0, low);
    EXPECT_EQ(1, high);
}

TEST(Interrogation, EleventhDeclarationGrowsTheListByTenInOrder) {
    SmartPtr<CBareProps> bare = NewBare();
    int32_t members[11] = {};
    for (int i = 0; i < 10; ++i) bare->DeclareParameter(100 + i, &members[i], 3);
    EXPECT_EQ(10, bare->m_Parameters.Capacity());
    bare->DeclareParameter(110, &members[10], 3);
    EXPECT_EQ(20, bare->m_Parameters.Capacity());
    ASSERT_EQ(11, bare->m_Parameters.Count());
    for (int i = 0; i < 11; ++i) {
        EXPECT_EQ(100 + i, bare->m_Parameters.At(i)->id);
        EXPECT_EQ(&members[i], bare->m_Parameters.At(i)->value);
    }
}

TEST(Interrogation, ExtendedAccessToDoublesStringsAndObjects) {
    SmartPtr<CArchiveProbe> probe = NewProbe();
    IUIPropInterrogateEx* props = Props(probe.Get());

    probe->m_Double = 0.1;
    SmartPtr<IUnknown> out;
    EXPECT_EQ(5, props->InquireEx(ProbeDouble, out.Out()));
    SmartPtr<IVariant> variant = QueryAs<IVariant>(out.Get(), IID_IVariant);
    ASSERT_TRUE(variant);
    double number = 0;
    variant->get_Double(&number);
    EXPECT_EQ(0.1, number) << "the extended read keeps the double whole";

    variant->put_Double(-7.25);
    EXPECT_EQ(S_OK, props->ControlEx(ProbeDouble, variant.Get()));
    EXPECT_EQ(-7.25, probe->m_Double);
    EXPECT_EQ(E_FAIL, props->ControlEx(ProbeDouble, Str(L"1").Get())) << "not a variant";

    // A string is stored under the lock, replacing (and releasing) the old one.
    SmartPtr<IString> first = Str(L"first"), second = Str(L"second");
    EXPECT_EQ(S_OK, props->ControlEx(ProbeLabel, first.Get()));
    EXPECT_EQ(2u, RefCountOf(first.Get()));
    const int locks = probe->m_Locks;
    EXPECT_EQ(S_OK, props->ControlEx(ProbeLabel, second.Get()));
    EXPECT_EQ(locks + 1, probe->m_Locks);
    EXPECT_EQ(1u, RefCountOf(first.Get()));
    EXPECT_EQ(6, props->InquireEx(ProbeLabel, out.Out()));
    EXPECT_EQ(IdentityPointer(second.Get()), IdentityPointer(out.Get()));
    EXPECT_EQ(S_OK, props->ControlEx(ProbeLabel, second.Get())) << "storing the string already held";
    EXPECT_EQ(L"second", TextOf(probe->m_Label.Get()));
    EXPECT_EQ(S_OK, props->ControlEx(ProbeLabel, variant.Get())) << "an object that is no string clears it";
    EXPECT_FALSE(probe->m_Label);

    EXPECT_EQ(S_OK, props->ControlEx(ProbeObject, variant.Get()));
    EXPECT_EQ(IdentityPointer(variant.Get()), IdentityPointer(probe->m_Object.Get()));
    EXPECT_EQ(S_OK, props->ControlEx(ProbeObject, nullptr));
    EXPECT_FALSE(probe->m_Object);

    EXPECT_EQ(E_FAIL, props->InquireEx(ProbeByte, out.Out()));
    EXPECT_FALSE(out);
    EXPECT_EQ(E_FAIL, props->ControlEx(ProbeLong, variant.Get()));
    EXPECT_EQ(E_INVALIDARG, props->InquireEx(99, out.Out()));
    EXPECT_EQ(E_INVALIDARG, props->ControlEx(99, variant.Get()));
}

/// The (name, value) entries of a choice collection.
std::vector<std::pair<std::wstring, int32_t>> Choices(IUnknown* list) {
    std::vector<std::pair<std::wstring, int32_t>> choices;
    SmartPtr<INamedCollection> named = QueryAs<INamedCollection>(list, IID_INamedCollection);
    int32_t count = 0;
    if (!named || named->get_Count(&count) < 0) return choices;
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IString> name;
        SmartPtr<IUnknown> item;
        named->get_Name(i, name.Out());
        named->get_Item(i, item.Out());
        int32_t value = -1;
        if (SmartPtr<IVariant> variant = QueryAs<IVariant>(item.Get(), IID_IVariant)) variant->get_Integer(&value);
        choices.emplace_back(TextOf(name.Get()), value);
    }
    return choices;
}

TEST(NamedChoices, ItemsOfTheOwnersStringWithTheirValues) {
    SmartPtr<CArchiveProbe> probe = NewProbe();
    IUIPropInterrogateEx* props = Props(probe.Get());
    SmartPtr<IUnknown> list;
    ASSERT_EQ(S_OK, props->ParameterEnumeration(ProbeChoice, list.Out()));
    using Choice = std::pair<std::wstring, int32_t>;
    EXPECT_EQ((std::vector<Choice>{{L"Slow", 10}, {L"Medium", 20}, {L"Fast", 40}}), Choices(list.Get()));
    EXPECT_EQ(0x43, props->Inquire(ProbeChoice, nullptr));
    int32_t low = -1, high = -1;
    EXPECT_EQ(E_INVALIDARG, props->ParameterRange(ProbeChoice, &low, &high));
    EXPECT_EQ(0, low + high);
    EXPECT_EQ(E_INVALIDARG, props->ParameterEnumeration(ProbeLong, list.Out()));
    EXPECT_FALSE(list);

    // An owner given as a string; without values the items count from 0.
    int32_t member = 0;
    ASSERT_EQ(S_OK, probe->PropE(30, &member, 3, Str(L"ArchiveProbe").Get(), 20));
    props->ParameterEnumeration(30, list.Out());
    EXPECT_EQ((std::vector<Choice>{{L"Slow", 0}, {L"Medium", 1}, {L"Fast", 2}}), Choices(list.Get()));

    // Without the owner's strings, or without the string, nothing is declared.
    const int32_t before = probe->m_Parameters.Count();
    EXPECT_EQ(E_FAIL, probe->PropE(31, &member, 3, Str(L"NoSuchOwner").Get(), 20));
    EXPECT_EQ(E_FAIL, probe->PropE(32, &member, 3, nullptr, 999));
    EXPECT_EQ(before, probe->m_Parameters.Count());
}

}  // namespace
