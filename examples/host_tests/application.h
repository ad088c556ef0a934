// The application under test. It knows nothing of its tests.
#pragma once

#include <string>
#include <vector>

/// Installs the library's platform. False when that is refused.
bool startApplication();

void signIn(const std::string& user);

/// Reports what was bought.
void buy(const std::vector<std::string>& items);

/// Reports what was paid, at once, and tells the user when that has arrived.
void pay(double amount);

/// What the user reads, or nothing.
std::string notice();
