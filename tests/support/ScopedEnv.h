// Sets an environment variable for the life of the object (children started
// meanwhile inherit it) and unsets it at the end, not restoring it. One thread.
#pragma once

#include <cstdlib>
#include <string>
#include <utility>

namespace VelmoraTest {

class ScopedEnv {
public:
    ScopedEnv(std::string name, std::string const& value) : name(std::move(name))
    {
        ::setenv(this->name.c_str(), value.c_str(), 1);
    }
    ~ScopedEnv() { ::unsetenv(name.c_str()); }
    ScopedEnv(ScopedEnv const&) = delete;
    ScopedEnv& operator=(ScopedEnv const&) = delete;

private:
    std::string name;
};

} // namespace VelmoraTest
