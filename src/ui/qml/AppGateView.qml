import QtQuick
import Tamlo.Ui

// The panel's content: the sign-in screen until a user is signed in, the main screen after.
Item {
    id: root
    required property AppGateModel gate
    required property LoginViewModel login
    required property MainScreenModel main

    Loader {
        anchors.fill: parent
        sourceComponent: root.gate.screen === AppGateModel.Content ? contentScreen : loginScreen
    }

    Component {
        id: loginScreen
        LoginView {
            login: root.login
        }
    }

    Component {
        id: contentScreen
        ContentView {
            main: root.main
        }
    }
}
