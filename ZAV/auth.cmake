# libvelmora_auth: attribute certificates, the rule set and authorization tokens.
find_package(OpenSSL REQUIRED)
set(AUTH_DIR ${CMAKE_CURRENT_LIST_DIR}/master)
add_library(velmora_auth
  ${AUTH_DIR}/AllowedInterface.cpp
  ${AUTH_DIR}/AttributeCertificate.cpp
  ${AUTH_DIR}/AttributeCertificateHolder.cpp
  ${AUTH_DIR}/AttributeCertificateInfo.cpp
  ${AUTH_DIR}/AttributeCertificateIssuer.cpp
  ${AUTH_DIR}/AttributeCertificateIssuerSerial.cpp
  ${AUTH_DIR}/AttributeCertificateObjectDigestInfo.cpp
  ${AUTH_DIR}/AttributeCertificateV2Form.cpp
  ${AUTH_DIR}/AttributeCertificateValidity.cpp
  ${AUTH_DIR}/AuthorizationAttributesManager.cpp
  ${AUTH_DIR}/AuthorizationAttributesManagerDiagnostics.cpp
  ${AUTH_DIR}/AuthorizationAttributesManagerGeneration.cpp
  ${AUTH_DIR}/AuthorizationAttributesManagerVerification.cpp
  ${AUTH_DIR}/ParsedCertificateCache.cpp)
target_include_directories(velmora_auth PUBLIC ${AUTH_DIR})
target_link_libraries(velmora_auth PUBLIC velmora_common velmora_sysroot OpenSSL::Crypto)
