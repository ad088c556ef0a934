// The application under test. It knows nothing of its tests.
#pragma once

#include <string>
#include <vector>

/// Installs the library's platform. False if it is refused.
bool startApplication();

void signIn(const std::string& user);

/// Reports what was bought.
void buy(const std::vector<std::string>& items);

/// Reports a payment at once, and tells the user whether the report has arrived.
void pay(double amount);

/// The message to the user; may be empty.
std::string notice();
