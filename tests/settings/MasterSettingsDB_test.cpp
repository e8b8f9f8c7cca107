// The persistent settings database in a relocated "/root": its asymmetries,
// persistence, stored texts it can't read, and the listener walk.
#include "store/EAVStore.h"
#include "frame/Exception.h"
#include "MasterSettingsDB.h"
#include "ReturnCodeOf.h"
#include "IntegrityOf.h"
#include "ScratchDirectory.h"
#include "ScopedEnv.h"
#include "serial/StringObject.h"
#include "serial/UInt32Object.h"

#include <gtest/gtest.h>

using namespace Velmora;
using Pairs = VectorObject<ISettingsDB::AttributeValuePair>;
using Names = VectorObject<std::string>;

namespace {

class MasterSettingsDBTest : public testing::Test {
protected:
    ~MasterSettingsDBTest() override { close(); }

    MasterSettingsDB& open()
    {
        close();
        settings = new MasterSettingsDB();
        settings->init();
        return *settings;
    }
    void close()
    {
        delete settings;
        settings = nullptr;
    }
    // A store file as the settings database sees it, opened beside it.
    std::unique_ptr<EAVStore> rawStore(char const* name)
    {
        auto store = std::make_unique<EAVStore>(name, scratch.file("root"), ".db");
        store->init();
        return store;
    }
    static std::string text(SerialObject const& object) { return object.serialize(); }

    ScratchDirectory scratch;
    VelmoraTest::ScopedEnv root{"VELMORA_ROOT", scratch.get()};
    MasterSettingsDB* settings = nullptr;
};

} // namespace

TEST_F(MasterSettingsDBTest, CurrentValuesPersistInWriteOrderAndTheLaterValueWins)
{
    {
        MasterSettingsDB& s = open();
        s.setCurrentValues("net", Pairs{ISettingsDB::AttributeValuePair("dns", StringObject("1.1.1.1")),
                                        ISettingsDB::AttributeValuePair("mtu", UInt32Object(1500)),
                                        ISettingsDB::AttributeValuePair("dns", StringObject("9.9.9.9"))});
        s.setCurrentValue(ISettingsDB::EntityAttributeValueTriplet("audio", "volume", UInt32Object(7)));
        s.setCurrentValue("audio", ISettingsDB::AttributeValuePair("mute", StringObject("no")));
        s.setCurrentValues("empty", Pairs{});
    }
    MasterSettingsDB& s = open();
    EXPECT_EQ(s.getEntities(), (Names{"net", "audio"}));
    EXPECT_EQ(text(s.getCurrentValues("net")), text(Pairs{ISettingsDB::AttributeValuePair("dns", StringObject("9.9.9.9")),
                                                          ISettingsDB::AttributeValuePair("mtu", UInt32Object(1500))}));
    EXPECT_EQ(text(s.getCurrentValues("audio")), text(Pairs{ISettingsDB::AttributeValuePair("volume", UInt32Object(7)),
                                                            ISettingsDB::AttributeValuePair("mute", StringObject("no"))}));
    EXPECT_TRUE(s.getCurrentValues("nowhere").empty());
}

// The allowed store keeps one text per setting, the last element of a list,
// so a vector is given as the one element; neither list of names knows a
// setting with allowed values alone, the singular read needs one, and reset
// empties the current store only.
TEST_F(MasterSettingsDBTest, TheAllowedStoreAndItsAsymmetries)
{
    MasterSettingsDB& s = open();
    auto allowedText = [&](char const* entity, char const* attribute) {
        return rawStore(MasterSettingsDB::ALLOWED_STORE_NAME)->getValue(entity, attribute);
    };
    StringObject low("low"), mid("mid"), high("high");
    s.setAllowedValues("video", "quality", VectorObject<SerialObject*>{&low, &mid, &high});
    EXPECT_EQ(allowedText("video", "quality"), text(high));
    EXPECT_EQ(returnCodeOf([&] { s.getAllowedValues("video", "quality"); }), ReturnInvalidParameter)
        << "the text of one string is no vector";
    EXPECT_TRUE(s.getAllowedValues("video", "absent").empty());
    EXPECT_TRUE(s.getEntities().empty());
    EXPECT_TRUE(s.getAttributes("video").empty());
    s.setAllowedValues("video", "quality", VectorObject<SerialObject*>{});
    EXPECT_EQ(allowedText("video", "quality"), text(high)) << "an empty list writes nothing";

    StringObject a("a"), b("b");
    VectorObject<SerialObject*> inner{&a, &b};
    s.setAllowedValues("ui", "themes", VectorObject<SerialObject*>{&inner});
    VectorObject<SerialObject*> read = s.getAllowedValues("ui", "themes");
    std::vector<std::unique_ptr<SerialObject>> owned(read.begin(), read.end());
    ASSERT_EQ(read.size(), 2u);
    EXPECT_EQ(text(*read[0]), text(a));
    EXPECT_EQ(text(*read[1]), text(b));

    s.setCurrentValue("net", "dns", StringObject("current"));
    EXPECT_EQ(returnCodeOf([&] { s.getCurrentValue("net", "dns"); }), ReturnGenericFailure)
        << "a setting without allowed value fails the singular read";
    StringObject allowed("allowed");
    s.setAllowedValues("net", "dns", VectorObject<SerialObject*>{&allowed});
    EXPECT_NE(s.getCurrentValue("net", "dns"), nullptr);
    s.reset();
    EXPECT_TRUE(s.getEntities().empty());
    EXPECT_TRUE(s.getCurrentValues("net").empty());
    EXPECT_NE(s.getCurrentValue("net", "dns"), nullptr);
    EXPECT_EQ(allowedText("net", "dns"), text(allowed));
}

TEST_F(MasterSettingsDBTest, AStoredTextThatIsNoSerialObjectFailsTheReadAndACorruptFileInit)
{
    MasterSettingsDB& s = open();
    s.setCurrentValue("net", "dns", StringObject("fine"));
    rawStore(MasterSettingsDB::CURRENT_STORE_NAME)->setValue("net", "broken", "{not json");
    rawStore(MasterSettingsDB::CURRENT_STORE_NAME)->setValue("net", "alien", "{\"@type\":\"NoSuchRecord\"}");
    EXPECT_EQ(returnCodeOf([&] { s.getCurrentValues("net"); }), ReturnGenericFailure);
    // The store keeps what it holds; the readable value is still there.
    auto store = rawStore(MasterSettingsDB::CURRENT_STORE_NAME);
    EXPECT_EQ(store->getValue("net", "broken"), "{not json");
    EXPECT_EQ(store->getAttributes("net").size(), 3u);
    EXPECT_EQ(integrityOf(scratch.file("root/ZAVSettingsDBCurrent.db")), "ok");

    // A store file that is no database stops init and is kept as it is.
    close();
    store.reset();
    std::string const junk(8192, '\x42');
    writeFile(scratch.file("root/ZAVSettingsDBCurrent.db"), junk);
    EXPECT_THROW(open(), Exception);
    EXPECT_TRUE(contentsOf(scratch.file("root/ZAVSettingsDBCurrent.db")) == junk) << "the file was changed";
}

// Answers every event with `answer` and counts what it heard.
struct CountingListener : ISettingsDB::ISettingsDBListener {
    explicit CountingListener(int answer) : answer(answer) {}
    int answer;
    int heard = 0;
    int onEntityListChange(Names const&) override { return ++heard, answer; }
    int onAttributeListChange(std::string const&, Names const&) override { return ++heard, answer; }
    int onAllowedValuesChange(std::string const&, Pairs const&) override { return ++heard, answer; }
    int onCurrentValuesChange(std::string const&, Pairs const&) override { return ++heard, answer; }
};

TEST_F(MasterSettingsDBTest, ListenerWalkStopsAtTheFirstNonZeroAnswer)
{
    MasterSettingsDB& s = open();
    EXPECT_EQ(s.onEntityListChange({}), 0) << "no listeners";
    CountingListener swallowing(5), later(0);
    EXPECT_TRUE(s.addListener(&swallowing));
    EXPECT_TRUE(s.addListener(&later));
    EXPECT_FALSE(s.addListener(&later));
    EXPECT_EQ(s.onEntityListChange({}), 1);
    EXPECT_EQ(s.onAttributeListChange("e", {}), 1);
    EXPECT_EQ(s.onAllowedValuesChange("e", {}), 1);
    EXPECT_EQ(s.onCurrentValuesChange("e", {}), 1);
    EXPECT_EQ(swallowing.heard, 4);
    EXPECT_EQ(later.heard, 0);
    EXPECT_TRUE(s.removeListener(&swallowing));
    EXPECT_EQ(s.onCurrentValuesChange("e", {}), 0);
    EXPECT_EQ(later.heard, 1);
    s.removeListener(&later);
}
