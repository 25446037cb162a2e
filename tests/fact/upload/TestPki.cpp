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

void writeText(const std::string& path, const std::string& text) {
    std::ofstream out(path);
    out << text;
    if (!out.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

// A CA named `name` with key <name>.key and certificate <name>.pem.
void makeCa(const std::string& directory, const std::string& name) {
    run(directory, "openssl ecparam -name prime256v1 -genkey -noout -out " + name + ".key");
    run(directory, "openssl req -x509 -new -key " + name + ".key -subj '/CN=" + name +
                       "' -days 2 -out " + name +
                       ".pem -addext basicConstraints=critical,CA:TRUE"
                       " -addext keyUsage=critical,keyCertSign,cRLSign");
}

// A server key and certificate <name>.key / <name>.pem signed by `ca`.
void makeServer(const std::string& directory, const std::string& name, const std::string& ca) {
    run(directory, "openssl ecparam -name prime256v1 -genkey -noout -out " + name + ".key");
    run(directory,
        "openssl req -new -key " + name + ".key -subj /CN=localhost -out " + name + ".csr");
    run(directory, "openssl x509 -req -in " + name + ".csr -CA " + ca + ".pem -CAkey " + ca +
                       ".key -CAcreateserial -days 2 -extfile server.ext -out " + name + ".pem");
}

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
    writeText(directory + "/server.ext",
              "basicConstraints=CA:FALSE\n"
              "keyUsage=critical,digitalSignature\n"
              "extendedKeyUsage=serverAuth\n"
              "subjectAltName=DNS:localhost,IP:127.0.0.1\n");
    makeCa(directory, "ca");
    makeServer(directory, "server", "ca");
    makeCa(directory, "foreign-ca");
    makeServer(directory, "foreign-server", "foreign-ca");
}

}  // namespace test
}  // namespace vemo
