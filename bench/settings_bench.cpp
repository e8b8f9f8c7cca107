// Figures of the settings database: a write and a read through the public
// SettingsDB calls, each against the raw SQLite work it stands on, with the
// same file settings (WAL, full sync) in a directory on the same disk.
#include "FigureReporter.h"
#include "RawEavTable.h"

#include "MasterSettingsDB.h"
#include "serial/StringObject.h"

#include <json/reader.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

using namespace Velmora;

namespace {

constexpr int ATTRIBUTES = 20;

// A scratch directory beside the working directory, so that both sides write
// to the same disk.
std::string const& benchDirectory()
{
    static std::string const directory = [] {
        std::string path = std::filesystem::current_path() / "settings-bench-XXXXXX";
        return std::string(mkdtemp(path.data()));
    }();
    return directory;
}

struct RawDatabase : RawEavTable {
    RawDatabase() : RawEavTable(benchDirectory() + "/raw.db") {}
};

MasterSettingsDB* openSettings()
{
    setenv("VELMORA_ROOT", benchDirectory().c_str(), 1);
    auto* settings = new MasterSettingsDB();
    settings->init();
    return settings;
}

std::string valueOf(int i)
{
    return "value-" + std::to_string(i);
}

void BM_SettingsSetCurrentValue(benchmark::State& state)
{
    MasterSettingsDB* settings = openSettings();
    int i = 0;
    for (auto _ : state) {
        ++i;
        settings->setCurrentValue("bench", "attribute" + std::to_string(i % ATTRIBUTES), StringObject(valueOf(i)));
    }
    delete settings;
}
BENCHMARK(BM_SettingsSetCurrentValue)->UseRealTime();

void BM_RawUpsert(benchmark::State& state)
{
    RawDatabase raw;
    int i = 0;
    for (auto _ : state) {
        ++i;
        raw.write("bench", "attribute" + std::to_string(i % ATTRIBUTES), StringObject(valueOf(i)).serialize());
    }
}
BENCHMARK(BM_RawUpsert)->UseRealTime();

void BM_SettingsGetCurrentValues(benchmark::State& state)
{
    MasterSettingsDB* settings = openSettings();
    for (int i = 0; i < ATTRIBUTES; ++i)
        settings->setCurrentValue("read", "attribute" + std::to_string(i), StringObject(valueOf(i)));
    for (auto _ : state) {
        auto values = settings->getCurrentValues("read");
        benchmark::DoNotOptimize(values.data());
    }
    delete settings;
}
BENCHMARK(BM_SettingsGetCurrentValues)->UseRealTime();

void BM_RawSelectAndParse(benchmark::State& state)
{
    RawDatabase raw;
    for (int i = 0; i < ATTRIBUTES; ++i)
        raw.write("read", "attribute" + std::to_string(i), StringObject(valueOf(i)).serialize());
    std::string const entity = "read";
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    for (auto _ : state) {
        sqlite3_bind_text(raw.select, 1, entity.data(), static_cast<int>(entity.size()), SQLITE_STATIC);
        std::vector<std::pair<std::string, Json::Value>> rows;
        while (sqlite3_step(raw.select) == SQLITE_ROW) {
            auto const* text = reinterpret_cast<char const*>(sqlite3_column_text(raw.select, 1));
            int size = sqlite3_column_bytes(raw.select, 1);
            Json::Value value;
            reader->parse(text, text + size, &value, nullptr);
            rows.emplace_back(reinterpret_cast<char const*>(sqlite3_column_text(raw.select, 0)), std::move(value));
        }
        sqlite3_reset(raw.select);
        benchmark::DoNotOptimize(rows.data());
    }
}
BENCHMARK(BM_RawSelectAndParse)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    int result = VelmoraBench::runFigures(
        argc, argv,
        {{"settings_write_ratio", "BM_SettingsSetCurrentValue/real_time", "BM_RawUpsert/real_time"},
         {"settings_read_ratio", "BM_SettingsGetCurrentValues/real_time", "BM_RawSelectAndParse/real_time"}});
    std::error_code ignored;
    std::filesystem::remove_all(benchDirectory(), ignored);
    return result;
}
