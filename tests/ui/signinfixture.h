#pragma once

#include "accountfixture.h"
#include "uitestenvironment.h"

// The account services the sign-in screens sit on, and the browser they open pages in.
class SignInFixture : public AccountFixture
{
protected:
    RecordingDesktop m_browser;
};
