// The users whose per-user products are assessed: those logged on (their
// hive loaded under HKEY_USERS) and those who are not, whose NTUSER.DAT is
// loaded for the assessment and unloaded after (docs/third-party.md,
// "Users who are not logged on").
#pragma once

#include <string>
#include <vector>

namespace kpm {

struct UserHive {
    std::string sid;
    std::string key;      // its name under HKEY_USERS: the SID, or the name this pass loaded it under
    std::string file;     // the hive file loaded by this pass; "" for a user who is logged on
    std::string failure;  // why the hive could not be loaded; "" when it is there to read
};

class UserHives {
public:
    UserHives() = default;
    UserHives(const UserHives&) = delete;
    UserHives& operator=(const UserHives&) = delete;
    // Unloads every hive this pass loaded.
    ~UserHives();

    // Read on the first call: the logged-on users, then the profiles of
    // ProfileList whose hive is not loaded, each loaded now. Real users only:
    // S-1-5-21-... and S-1-12-1-...; service accounts are never looked at.
    const std::vector<UserHive>& list();

private:
    bool read_ = false;
    std::vector<UserHive> users_;
};

}  // namespace kpm
