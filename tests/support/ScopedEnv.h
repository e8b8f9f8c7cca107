// Sets an environment variable for the life of the object, so that a failed
// assertion can't leave it set for the tests that follow; children started
// meanwhile inherit it. The variable is unset at the end, not restored.
// One thread.
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
