#include "TestPki.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace vemo {
namespace test {
namespace {

void run(const std::string& directory, const std::string& command) {
    const std::string log = directory + "/openssl.log";
    const std::string full = "cd '" + directory + "' && " + command + " >'" + log + "' 2>&1";
    if (std::system(full.c_str()) != 0) {
        std::ifstream in(log);
        std::ostringstream out;
        out << in.rdbuf();
        throw std::runtime_error("openssl failed: " + command + "\n" + out.str());
    }
}

// A new P-256 key <name>.key and certificate <name>.pem for CN=`subject` with
// the given -addext options, signed by the CA <ca>.pem/<ca>.key or, when `ca`
// is empty, by itself.
void makeCertificate(const std::string& directory, const std::string& name,
                     const std::string& subject, const std::string& ca,
                     const std::string& extensions) {
    std::string command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout " +
        name + ".key -out " + name + ".pem -subj /CN=" + subject + " -days 2 " + extensions;
    if (!ca.empty()) {
        command += " -CA " + ca + ".pem -CAkey " + ca + ".key";
    }
    run(directory, command);
}

const char kCaExtensions[] =
    "-addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign,cRLSign";
const char kServerExtensions[] =
    "-addext basicConstraints=CA:FALSE -addext keyUsage=critical,digitalSignature"
    " -addext extendedKeyUsage=serverAuth -addext subjectAltName=DNS:localhost,IP:127.0.0.1";

}  // namespace

TestPki::TestPki(const std::string& directory)
    : caFile_(directory + "/ca.pem"),
      serverCert_(directory + "/server.pem"),
      serverKey_(directory + "/server.key"),
      foreignServerCert_(directory + "/foreign-server.pem"),
      foreignServerKey_(directory + "/foreign-server.key") {
    if (std::system(("mkdir -p '" + directory + "'").c_str()) != 0) {
        throw std::runtime_error("cannot create " + directory);
    }
    for (const std::string prefix : {"", "foreign-"}) {
        makeCertificate(directory, prefix + "ca", prefix + "ca", "", kCaExtensions);
        makeCertificate(directory, prefix + "server", "localhost", prefix + "ca",
                        kServerExtensions);
    }
}

}  // namespace test
}  // namespace vemo
