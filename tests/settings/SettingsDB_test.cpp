// The command layer: what reaches the settings thread, and the listener walk.
#include "SettingsDB.h"
#include "serial/StringObject.h"
#include "serial/UInt32Object.h"

#include <gtest/gtest.h>

#include <thread>

using namespace Velmora;
using Pairs = VectorObject<ISettingsDB::AttributeValuePair>;

namespace {

// Records what the `_` operations receive and on which thread.
class RecordingSettings : public SettingsDB {
public:
    RecordingSettings() { init(); }
    ~RecordingSettings() override { uninit(); }

    std::vector<ISettingsDB::CurrentValues> written;
    std::thread::id writerThread;

protected:
    VectorObject<std::string> _getEntities() override { return {"a", "b"}; }
    VectorObject<std::string> _getAttributes(std::string const& entity) override { return {entity + ".x"}; }
    VectorObject<SerialObject*> _getAllowedValues(EntityAttributePair const&) override { return {}; }
    void _setAllowedValues(AllowedValues const&) override {}
    SerialObject* _getCurrentValue(EntityAttributePair const& pair) override
    {
        return new StringObject(pair.getEntity() + "/" + pair.getAttribute());
    }
    VectorObject<AttributeValuePair> _getCurrentValues(std::string const&) override { return {}; }
    void _setCurrentValues(CurrentValues const& values) override
    {
        writerThread = std::this_thread::get_id();
        written.push_back(values);
    }
    void _reset() override {}
};

// Answers every event with `answer` and counts what it heard.
struct CountingListener : ISettingsDB::ISettingsDBListener {
    explicit CountingListener(int answer = 0) : answer(answer) {}
    int answer;
    int heard = 0;
    int onEntityListChange(VectorObject<std::string> const&) override { return ++heard, answer; }
    int onAttributeListChange(std::string const&, VectorObject<std::string> const&) override { return ++heard, answer; }
    int onAllowedValuesChange(std::string const&, Pairs const&) override { return ++heard, answer; }
    int onCurrentValuesChange(std::string const&, Pairs const&) override { return ++heard, answer; }
};

std::string valueText(ISettingsDB::AttributeValuePair const& pair)
{
    return pair.getAttribute() + "=" + pair.getValue().serialize();
}

} // namespace

TEST(SettingsDB, EverySingleWriteReachesTheSettingsThreadAsAOneElementList)
{
    RecordingSettings settings;
    StringObject on("on");
    settings.setCurrentValue("net", "wifi", on);
    settings.setCurrentValue("net", ISettingsDB::AttributeValuePair("dns", UInt32Object(53)));
    settings.setCurrentValue(ISettingsDB::EntityAttributeValueTriplet("audio", "mute", on));
    settings.setCurrentValues("video", Pairs{ISettingsDB::AttributeValuePair("hdr", on),
                                             ISettingsDB::AttributeValuePair("hz", UInt32Object(50))});

    ASSERT_EQ(settings.written.size(), 4u);
    EXPECT_NE(settings.writerThread, std::this_thread::get_id());
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(settings.written[i].getAttributeValuePairList().size(), 1u);
    EXPECT_EQ(settings.written[0].getEntity(), "net");
    EXPECT_EQ(valueText(settings.written[0].getAttributeValuePairList()[0]), "wifi=\"on\"\n");
    EXPECT_EQ(valueText(settings.written[1].getAttributeValuePairList()[0]), "dns=53\n");
    EXPECT_EQ(settings.written[2].getEntity(), "audio");
    EXPECT_EQ(valueText(settings.written[2].getAttributeValuePairList()[0]), "mute=\"on\"\n");
    EXPECT_EQ(valueText(settings.written[3].getAttributeValuePairList()[1]), "hz=50\n");
}

TEST(SettingsDB, ListenerWalkStopsAtTheFirstNonZeroAnswer)
{
    RecordingSettings settings;
    Pairs none;
    EXPECT_EQ(settings.onEntityListChange({}), 0) << "no listeners";

    CountingListener swallowing(5);
    CountingListener later;
    EXPECT_TRUE(settings.addListener(&swallowing));
    EXPECT_TRUE(settings.addListener(&later));
    EXPECT_FALSE(settings.addListener(&later));
    EXPECT_FALSE(settings.addListener(nullptr));

    EXPECT_EQ(settings.onEntityListChange({}), 1);
    EXPECT_EQ(settings.onAttributeListChange("e", {}), 1);
    EXPECT_EQ(settings.onAllowedValuesChange("e", none), 1);
    EXPECT_EQ(settings.onCurrentValuesChange("e", none), 1);
    EXPECT_EQ(swallowing.heard, 4);
    EXPECT_EQ(later.heard, 0);

    EXPECT_TRUE(settings.removeListener(&swallowing));
    EXPECT_FALSE(settings.removeListener(&swallowing));
    EXPECT_EQ(settings.onCurrentValuesChange("e", none), 0);
    EXPECT_EQ(later.heard, 1);
}
