#pragma once

// The program's entry among the programs started at login.
class LoginItem
{
public:
    virtual ~LoginItem() = default;
    [[nodiscard]] virtual bool isEnabled() const = 0;
    // Each returns false when the change could not be made.
    virtual bool registerItem() = 0;
    virtual bool unregisterItem() = 0;
};
