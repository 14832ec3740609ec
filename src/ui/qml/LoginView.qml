import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// The sign-in screen: a header, then the login or the waiting section by phase.
Rectangle {
    id: view
    required property LoginViewModel login

    readonly property bool waiting: login.phase !== LoginViewModel.Login

    color: TamloTheme.surfaceWindow

    Column {
        id: content
        width: parent.width
        spacing: 0

        Item {
            id: headerSection
            width: parent.width
            height: headerStack.implicitHeight + 48

            Column {
                id: headerStack
                y: 24
                width: parent.width
                spacing: 8

                SymbolIcon {
                    name: "timer.circle.fill"
                    size: 36
                    color: TamloTheme.accent
                    anchors.horizontalCenter: parent.horizontalCenter
                }
                StyledText {
                    text: "Tamlo"
                    textStyle: "title2"
                    anchors.horizontalCenter: parent.horizontalCenter
                }
                StyledText {
                    text: "Step 1 — Sign in"
                    textStyle: "subheadline"
                    color: TamloTheme.secondary
                    anchors.horizontalCenter: parent.horizontalCenter
                }
            }

            IconButton {
                objectName: "closeButton"
                anchors.top: parent.top
                anchors.right: parent.right
                anchors.margins: 10
                symbol: "xmark.circle.fill"
                size: 16
                tint: TamloTheme.tertiary
                helpText: "Quit Tamlo"
                onClicked: view.login.close()
            }
        }

        Divider {
            width: parent.width
        }

        Item {
            width: parent.width
            height: (view.waiting ? waitingSection.implicitHeight
                                  : view.login.localServerMissing ? startServerSection.implicitHeight
                                                                  : loginSection.implicitHeight) + 40

            Column {
                id: loginSection
                visible: !view.waiting && !view.login.localServerMissing
                x: 20
                y: 20
                width: parent.width - 40
                spacing: 16

                ErrorRow {
                    width: parent.width
                    visible: view.login.showsError
                    text: view.login.errorText
                }

                Basic.Button {
                    id: logInButton
                    objectName: "logInButton"
                    width: parent.width
                    text: "Log in"
                    font.pixelSize: 13
                    topPadding: 7
                    bottomPadding: 7
                    onClicked: view.login.openWebLogin()
                    contentItem: Text {
                        text: logInButton.text
                        font: logInButton.font
                        color: "white"
                        horizontalAlignment: Text.AlignHCenter
                        verticalAlignment: Text.AlignVCenter
                        renderType: Text.QtRendering
                    }
                    background: Rectangle {
                        implicitHeight: 30
                        radius: 7
                        color: TamloTheme.accent
                        opacity: logInButton.down ? 0.85 : 1.0
                    }
                }

                StyledText {
                    width: parent.width
                    text: "Opens Tamloweb in your browser. After you sign in, you'll return to Tamlo automatically to finish setup."
                    textStyle: "caption"
                    color: TamloTheme.secondary
                    wrapMode: Text.WordWrap
                }

                Divider {
                    width: parent.width
                }

                // Its items centred on one line; the row itself leading, as the section is.
                Row {
                    spacing: 4
                    StyledText {
                        text: "New to Tamlo?"
                        textStyle: "caption"
                        color: TamloTheme.secondary
                        anchors.verticalCenter: parent.verticalCenter
                    }
                    StyledText {
                        objectName: "createAccountButton"
                        text: "Create an account"
                        textStyle: "caption"
                        color: TamloTheme.accent
                        font.underline: createAccountArea.containsMouse
                        anchors.verticalCenter: parent.verticalCenter
                        MouseArea {
                            id: createAccountArea
                            anchors.fill: parent
                            hoverEnabled: true
                            cursorShape: Qt.PointingHandCursor
                            onClicked: view.login.createAccount()
                        }
                    }
                }
            }

            // Nothing answers where this build signs in: how to start the server, instead of "Log in".
            Column {
                id: startServerSection
                objectName: "startServerSection"
                visible: !view.waiting && view.login.localServerMissing
                x: 20
                y: 20
                width: parent.width - 40
                spacing: 12

                StyledText {
                    text: "Start the Tamlo server"
                    textStyle: "headline"
                }
                StyledText {
                    width: parent.width
                    text: view.login.localServerText
                    textStyle: "caption"
                    color: TamloTheme.secondary
                    wrapMode: Text.WordWrap
                }
                Rectangle {
                    width: parent.width
                    height: startCommand.implicitHeight + 12
                    radius: 4
                    color: TamloTheme.surfaceField
                    border.width: 1
                    border.color: TamloTheme.divider
                    TextEdit {
                        id: startCommand
                        x: 6
                        y: 6
                        width: parent.width - 12
                        text: view.login.startServerCommand
                        readOnly: true
                        selectByMouse: true
                        wrapMode: TextEdit.WrapAnywhere
                        font.family: "monospace"
                        font.pixelSize: 10
                        color: TamloTheme.primaryText
                    }
                }
                TamloPrimaryButton {
                    objectName: "tryAgainButton"
                    anchors.horizontalCenter: parent.horizontalCenter
                    text: "Try again"
                    onClicked: view.login.checkLocalServer()
                }
            }

            Column {
                id: waitingSection
                visible: view.waiting
                x: 20
                y: 20
                width: parent.width - 40
                spacing: 16

                Column {
                    visible: view.login.phase === LoginViewModel.Verifying
                    width: parent.width
                    spacing: 8
                    Spinner {
                        diameter: 20
                        anchors.horizontalCenter: parent.horizontalCenter
                    }
                    StyledText {
                        text: "Signing you in…"
                        textStyle: "headline"
                        anchors.horizontalCenter: parent.horizontalCenter
                    }
                }

                Column {
                    visible: view.login.phase === LoginViewModel.Waiting
                    width: parent.width
                    spacing: 16
                    SymbolIcon {
                        name: "safari"
                        size: 40
                        color: TamloTheme.accent
                        anchors.horizontalCenter: parent.horizontalCenter
                    }
                    Column {
                        width: parent.width
                        spacing: 6
                        StyledText {
                            text: "Complete sign-in in your browser"
                            textStyle: "headline"
                            anchors.horizontalCenter: parent.horizontalCenter
                        }
                        StyledText {
                            width: parent.width
                            text: "When you're done on Tamloweb, Tamlo will open automatically."
                            textStyle: "subheadline"
                            color: TamloTheme.secondary
                            wrapMode: Text.WordWrap
                            horizontalAlignment: Text.AlignHCenter
                        }
                    }
                }

                ErrorRow {
                    width: parent.width
                    visible: view.login.showsError
                    text: view.login.errorText
                }

                Divider {
                    width: parent.width
                }

                Basic.Button {
                    id: againButton
                    objectName: "openAgainButton"
                    anchors.horizontalCenter: parent.horizontalCenter
                    text: "Open login page again"
                    font.pixelSize: 12
                    leftPadding: 12
                    rightPadding: 12
                    topPadding: 4
                    bottomPadding: 4
                    onClicked: view.login.openWebLogin()
                    contentItem: Text {
                        text: againButton.text
                        font: againButton.font
                        color: TamloTheme.primaryText
                        horizontalAlignment: Text.AlignHCenter
                        verticalAlignment: Text.AlignVCenter
                        renderType: Text.QtRendering
                    }
                    background: Rectangle {
                        implicitHeight: 24
                        radius: 6
                        color: againButton.down ? Qt.darker(TamloTheme.surfaceControl, 1.08) : TamloTheme.surfaceControl
                        border.width: 1
                        border.color: TamloTheme.divider
                    }
                }

                StyledText {
                    objectName: "backButton"
                    anchors.horizontalCenter: parent.horizontalCenter
                    text: "Back"
                    textStyle: "caption"
                    color: TamloTheme.secondary
                    MouseArea {
                        anchors.fill: parent
                        anchors.margins: -4
                        cursorShape: Qt.PointingHandCursor
                        onClicked: view.login.back()
                    }
                }
            }
        }
    }

    // The sign-in's message, in red with a warning sign, on as many lines as it needs.
    component ErrorRow: Row {
        property alias text: message.text
        spacing: 5
        SymbolIcon {
            id: sign
            name: "exclamationmark.triangle.fill"
            size: Theme.captionSize + 1
            color: TamloTheme.red
        }
        StyledText {
            id: message
            width: parent.width - sign.width - parent.spacing
            textStyle: "caption"
            color: TamloTheme.red
            wrapMode: Text.WordWrap
        }
    }
}
