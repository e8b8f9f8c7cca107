// The web service of a box without hardware (endpoint "WEB"): it records
// every facility it is told of ("add <name>", "remove <name>") so that a test
// or a demo can read the list back (Sim.record, VELMORA_SIM_LOG).
#include "SimService.h"

using namespace Velmora;

namespace {

class WebServiceSim : public SimService {
public:
    WebServiceSim() : SimService("WEB")
    {
        interfaces["IWebService"]["addService"] = static_cast<RPCMethod>(&WebServiceSim::addService);
        interfaces["IWebService"]["removeService"] = static_cast<RPCMethod>(&WebServiceSim::removeService);
    }

private:
    std::string addService(IRPC::RPCSynchronousMethodObject const& method) { return note("add", method); }
    std::string removeService(IRPC::RPCSynchronousMethodObject const& method) { return note("remove", method); }
    std::string note(char const* what, IRPC::RPCSynchronousMethodObject const& method)
    {
        std::string const name = paramsOf(method)["name"].asString();
        if (name.empty())
            return IRPC::RPCErrorObject(method.getMethod(), "Invalid parameter").serialize();
        record(std::string(what) + " " + name);
        return answer(method);
    }
};

} // namespace

int main()
{
    WebServiceSim sim;
    return sim.run();
}
