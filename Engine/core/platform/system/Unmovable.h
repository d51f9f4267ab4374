#pragma once

namespace kavix {

/// A base of classes whose objects cannot be copied or moved, because others hold their address.
class Unmovable {

public:

    Unmovable(const Unmovable&) = delete;
    Unmovable& operator=(const Unmovable&) = delete;

protected:

    Unmovable() = default;
    ~Unmovable() = default;
};

}
