// The serial model: the dynamic form that rebuilds concrete types, ownership
// of containers, and the handling of bad texts.
#include "serial/BooleanObject.h"
#include "interfaces/Edge.h"
#include "frame/Exception.h"
#include "interfaces/IApplicationManager.h"
#include "interfaces/ISettingsDB.h"
#include "interfaces/IWindowManager.h"
#include "interfaces/IWindowEvent.h"
#include "serial/MapObject.h"
#include "ReturnCodeOf.h"
#include "serial/StringObject.h"
#include "serial/UInt32Object.h"
#include "serial/VectorObject.h"

#include <gtest/gtest.h>

#include <memory>
#include <typeinfo>

using namespace Velmora;

namespace {

// A record shaped like the settings records: named members and a dynamic list
// that may hold records of its own kind.
class Nest : public SerialObject {
public:
    explicit Nest(Deserializer& d) : name(deserialize<std::string>("name", d)), values("values", d) {}
    ~Nest() override
    {
        for (SerialObject* value : values)
            delete value;
    }
    Nest(Nest const&) = delete;
    std::string const& getObjectType() const override
    {
        static std::string const TYPE_NAME("Nest");
        return TYPE_NAME;
    }
    SerialObject* clone() const override { return nullptr; }
    using SerialObject::serialize;
    void serialize(Serializer& s) const override
    {
        Velmora::serialize("name", name, s);
        values.serialize("values", s);
    }
    std::string name;
    VectorObject<SerialObject*> values;
};

SerialTypeRegistry::Registrar<Nest> const nestRegistrar("Nest");

} // namespace

// Every record kind that travels in the dynamic form, settings records
// holding values of other kinds included, comes back as its concrete type
// with every member.
TEST(Serial, DynamicFormRebuildsTheConcreteType)
{
    StringObject const blue("blue");
    VectorObject<ISettingsDB::AttributeValuePair> const pairs{ISettingsDB::AttributeValuePair("colour", blue),
                                                              ISettingsDB::AttributeValuePair("size", UInt32Object(3))};
    std::unique_ptr<SerialObject const> const records[] = {
        std::make_unique<IApplicationManager::LaunchParameters>("77", "WEBAPP", "http://x", "--flag", false),
        std::make_unique<IWindowManager::LaunchParameters>(
            "7", "WEBAPP", "u", "p",
            ISurfaceManagement::CreationSettings(1, {1280, 720}, false, 255, 11, {0, 0, 1280, 720}, false, true, true),
            true, false),
        std::make_unique<Edge<StringObject>>(StringObject("a"), StringObject("b")),
        std::make_unique<IWindowEvent::KeyEvent>(IWindowEvent::KeyEvent::KEY_POWER, true),
        std::make_unique<StringObject>("quote\" back\\slash \xc3\xa9"),
        std::make_unique<BooleanObject>(true),
        std::make_unique<UInt32Object>(9),
        std::make_unique<ISettingsDB::CurrentValues>("ui", pairs),
        std::make_unique<ISettingsDB::EntityAttributeValueTriplet>("ui", "colour", blue),
    };
    for (auto const& record : records) {
        std::unique_ptr<SerialObject> back(createSerialObject(record->serialize()));
        ASSERT_NE(back, nullptr) << record->serialize();
        EXPECT_EQ(typeid(*back), typeid(*record)) << record->serialize();
        EXPECT_TRUE(*back == *record) << record->serialize();
    }
    EXPECT_EQ(returnCodeOf([] { deserialize<ISettingsDB::AttributeValuePair>("{\"attribute\":\"a\"}"); }),
              ReturnInvalidParameter)
        << "a pair without a value";
}

// Texts that are no known record give null; launch parameters are read
// leniently, but a member of the wrong type is refused.
TEST(Serial, BadTextsGiveNullOrEmptyRecordsButWrongTypesAreRefused)
{
    for (char const* text : {"", "{", "not json", "null", "-4", "[1,2]", "{\"a\":1}", "{\"@type\":\"Nope\"}",
                             "{\"@type\":5}", "{\"@type\":\"KeyEvent\",\"code\":\"x\",\"pressed\":true}"}) {
        std::unique_ptr<SerialObject> object(createSerialObject(text));
        EXPECT_EQ(object, nullptr) << text;
    }
    EXPECT_EQ(std::unique_ptr<SerialObject>(createSerialObject(std::string(100000, '['))), nullptr);
    for (char const* text : {"", "42", "\"text\"", "[]"}) {
        IApplicationManager::LaunchParameters empty = deserialize<IApplicationManager::LaunchParameters>(text);
        EXPECT_EQ(empty.getAuthorizationToken(), "") << text;
        EXPECT_EQ(empty.getApplicationURL(), "") << text;
    }
    auto partial = deserialize<IApplicationManager::LaunchParameters>("{\"applicationURL\":\"u\"}");
    EXPECT_EQ(partial.getApplicationURL(), "u");
    EXPECT_EQ(returnCodeOf([] { deserialize<IApplicationManager::LaunchParameters>("{\"authorizationToken\":5}"); }),
              ReturnInvalidParameter);
}

// Texts from peers and from the settings store: bounded before values are
// built, nested records read once each, a bad element costs only itself.
TEST(Serial, HostileTextsCostLittleAndSpoilNothingElse)
{
    std::string wide = "[0";
    for (std::size_t i = 0; i < Deserializer::MAX_VALUES; ++i)
        wide += ",0";
    wide += "]";
    EXPECT_FALSE(Deserializer(wide).isValid());
    EXPECT_TRUE(deserialize<VectorObject<int>>(wide).empty());
    std::string const nested = std::string(Deserializer::MAX_DEPTH + 1, '[') + std::string(Deserializer::MAX_DEPTH + 1, ']');
    EXPECT_FALSE(Deserializer(nested).isValid());
    EXPECT_TRUE(Deserializer(std::string("{\"s\":\"[[[[,,,,\\\"[[[\"}")).isValid()); // brackets inside strings don't count

    // A list member that is an object is refused, not read once per member at
    // every level (4^depth constructions before).
    std::string self = R"({"@type":"Nest","name":"n","values":[]})";
    for (int depth = 0; depth < 16; ++depth)
        self = R"({"@type":"Nest","name":"n","a":1,"values":)" + self + "}";
    EXPECT_EQ(std::unique_ptr<SerialObject>(createSerialObject(self)), nullptr);
    Deserializer members(std::string(R"({"values":{"a":"x"}})"));
    EXPECT_EQ(returnCodeOf([&] { VectorObject<std::string>("values", members); }), ReturnInvalidParameter);

    // A failed element leaves the cursor where it was and drops out.
    auto const list = deserialize<VectorObject<SerialObject*>>(
        R"([{"@type":"Edge","first":"a","second":5},"x",{"@type":"Nope"},"y",{"@type":"Nest","name":"n","values":[{"@type":"Nest","values":[]}]}])");
    std::vector<std::unique_ptr<SerialObject>> owned(list.begin(), list.end());
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(dynamic_cast<StringObject*>(list[0])->getValue(), "x");
    EXPECT_EQ(dynamic_cast<StringObject*>(list[1])->getValue(), "y");
    auto const* nest = dynamic_cast<Nest*>(list[2]);
    ASSERT_NE(nest, nullptr);
    EXPECT_TRUE(nest->values.empty()); // its nameless inner record dropped out

    VectorObject<SerialObject*> holey;
    holey.push_back(nullptr);
    EXPECT_EQ(holey.serialize(), "[null]\n");
}

// A list of pointers shares its elements, clone included, and never frees
// them. Other clones share nothing.
TEST(Serial, PointerVectorsShareTheirElementsAndClonesShareNothingElse)
{
    auto element = std::make_unique<StringObject>("one");
    {
        VectorObject<SerialObject*> list;
        list.push_back(element.get());
        std::unique_ptr<SerialObject> copy(list.clone());
        auto* typedCopy = dynamic_cast<VectorObject<SerialObject*>*>(copy.get());
        ASSERT_NE(typedCopy, nullptr);
        EXPECT_EQ((*typedCopy)[0], element.get());
    }
    EXPECT_EQ(element->getValue(), "one"); // still alive after both lists died

    MapObject<MapObject<int>> source;
    source["i"]["f"] = 1;
    std::unique_ptr<SerialObject> clone(source.clone());
    source["i"]["f"] = 2;
    source["j"]["g"] = 3;
    auto* map = dynamic_cast<MapObject<MapObject<int>>*>(clone.get());
    ASSERT_NE(map, nullptr);
    EXPECT_EQ((*map)["i"]["f"], 1);
    EXPECT_EQ(map->count("j"), 0u);
}
