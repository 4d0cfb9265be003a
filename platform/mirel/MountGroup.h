// The state database's side of setting a hardware table up. The tables pass these objects through;
// what they hold is for the agent, which mounts and recovers from it.

#pragma once

#include <string>
#include <vector>

namespace Mirel {

/// The paths that an agent has to mount before it creates a hardware table.
class MountGroup {
 public:
  struct Mount {
    std::string path;
    std::string typeName;  ///< qualified name of the class mounted there
  };

  void mountIs(std::string path, std::string typeName) {
    mounts_.push_back({std::move(path), std::move(typeName)});
  }
  std::vector<Mount> const& mounts() const { return mounts_; }

 private:
  std::vector<Mount> mounts_;
};

/// The state database's handle to the entities of one agent, known by the agent's name.
class EntityManager {
 public:
  explicit EntityManager(std::string name) : name_(std::move(name)) {}
  std::string const& name() const { return name_; }

 private:
  std::string name_;
};

}  // namespace Mirel
