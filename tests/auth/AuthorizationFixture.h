// A fresh AuthorizationAttributesManager per test, initialised with the test
// issuer in a private sysroot, and a service manager that records the tokens
// it is told of.
#pragma once

#include "AuthorizationAttributesManager.h"
#include "Exception.h"
#include "TestPki.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <vector>

namespace VelmoraTest {

class FakeServiceManager : public Velmora::IServiceManager {
public:
    std::string getState(std::string const&) override { return std::string(); }
    void setState(std::string const&, std::string const&) override {}
    void activate(std::string const&) override {}
    void suspend(std::string const&) override {}
    void terminate(std::string const&) override {}
    RuntimeStatistics getRuntimeStatistics(std::string const&) override { return RuntimeStatistics(); }
    Velmora::VectorObject<std::string> getServiceList() override { return {}; }
    void authorizationTokenCreation(unsigned int token, Rights rights) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        created.emplace_back(token, rights);
        if (failing)
            throw Velmora::Exception(Velmora::ReturnInvalidParameter);
    }
    void authorizationTokenDeletion(unsigned int) override {}

    std::mutex mutex;
    std::vector<std::pair<unsigned int, Rights>> created;
    bool failing = false;
};

class AuthorizationTest : public ::testing::Test {
protected:
    using Manager = Velmora::AuthorizationAttributesManager;

    void SetUp() override
    {
        manager = Manager::getInstance();
        manager->initialize(sandbox.issuerCertificate(), sandbox.issuerKey(), &services);
    }
    void TearDown() override
    {
        // getInstance() and the constructor each hold a reference.
        delete manager;
        delete manager;
    }

    std::string issue(X509* holder) { return manager->retreiveAttributeCertificate(toPem(holder)); }

    // An issued certificate for `holder`, changed by `change` and signed again
    // with `signer` (left as it is when null).
    std::string altered(X509* holder, std::function<void(Velmora::ATTRIBUTE_CERTIFICATE*)> const& change,
                        EVP_PKEY* signer)
    {
        Velmora::AttributeCertificatePtr certificate = fromPem(issue(holder));
        if (!certificate)
            return std::string();
        change(certificate.get());
        if (signer != nullptr)
            Manager::signKey(certificate.get(), signer, EVP_sha1());
        return toPem(certificate.get());
    }
    std::string resigned(X509* holder, std::function<void(Velmora::ATTRIBUTE_CERTIFICATE*)> const& change)
    {
        return altered(holder, change, TestPki::get().issuerKey.get());
    }

    // Applies and captures the log.
    uint32_t apply(X509* holder, std::string const& certificate, std::string* log = nullptr)
    {
        ::testing::internal::CaptureStderr();
        uint32_t token = manager->applyAttributeCertificate(toPem(holder), certificate);
        std::string text = ::testing::internal::GetCapturedStderr();
        if (log != nullptr)
            *log = text;
        return token;
    }

    void expectRejected(X509* holder, std::string const& certificate, char const* message)
    {
        std::string log;
        EXPECT_EQ(apply(holder, certificate, &log), 0u);
        EXPECT_THAT(log, ::testing::HasSubstr(message));
        EXPECT_THAT(log, ::testing::HasSubstr("processApplyACCertificate failed.\n"));
        EXPECT_EQ(sandbox.temporaryFiles(), 0);
        EXPECT_TRUE(services.created.empty());
    }

    Sandbox sandbox;
    FakeServiceManager services;
    Manager* manager = nullptr;
    TestPki& pki = TestPki::get();
};

} // namespace VelmoraTest
