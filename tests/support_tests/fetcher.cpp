// Fetches the URL given as argument with Qt's client and the system's certificates, and prints the body.
#include "Fetch.h"

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    if (argc < 2) {
        return 2;
    }
    const auto fetched = mediaworker::test::fetch(argv[1]);
    std::cout << fetched.body;
    return fetched.error == QNetworkReply::NoError ? 0 : 1;
}
