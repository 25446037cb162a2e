#pragma once
// A directive subscription: the namespace and name of the directives a client
// wants handed to its directive handler. Immutable value.

#include <string>

namespace tolmocomm {

class DirectiveConfig {
  public:
    DirectiveConfig(std::string nameSpace, std::string name)
        : nameSpace_(std::move(nameSpace)), name_(std::move(name)) {}

    const std::string& getNamespace() const { return nameSpace_; }
    const std::string& getName() const { return name_; }

  private:
    std::string nameSpace_;
    std::string name_;
};

}  // namespace tolmocomm
