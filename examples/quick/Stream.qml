import QtQuick 2.15
import Mediaworker 1.0

MediaStream {
    source: Qt.application.arguments[1]
    width: 640
    height: 360

    // What is wrong, while there is something.
    Text {
        anchors.centerIn: parent
        text: parent.problem && parent.stateText
        textFormat: Text.PlainText
    }
}
