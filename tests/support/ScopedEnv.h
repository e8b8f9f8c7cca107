// Sets an environment variable for the life of the object (children started
// meanwhile inherit it) and puts back what was there before. One thread.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace VelmoraTest {

class ScopedEnv {
public:
    ScopedEnv(std::string name, std::string const& value) : name(std::move(name))
    {
        if (char const* old = std::getenv(this->name.c_str()))
            saved = old;
        ::setenv(this->name.c_str(), value.c_str(), 1);
    }
    ~ScopedEnv() { saved ? ::setenv(name.c_str(), saved->c_str(), 1) : ::unsetenv(name.c_str()); }
    ScopedEnv(ScopedEnv const&) = delete;
    ScopedEnv& operator=(ScopedEnv const&) = delete;

    // PATH with `directories` (separated by ':') searched first.
    static std::string pathBefore(std::string const& directories) { return directories + ":" + std::getenv("PATH"); }

private:
    std::string name;
    std::optional<std::string> saved;
};

} // namespace VelmoraTest
