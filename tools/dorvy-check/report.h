// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Report: the findings, on standard output.
#ifndef REPORT_H
#define REPORT_H

#include "finding.h"

#include <QtCore/QVector>

/*!
    Collects the findings. As text each is printed when it is made, so that a user sees what is waited
    for; as JSON all are printed at the end, as one object.
*/
class Report
{
public:
    enum Format { Text, Json };

    explicit Report(Format outputFormat);

    void add(const Finding &finding);

    /*! Whether a finding with the given id failed. */
    bool hasFailed(const QString &id) const;

    /*! The worst status so far; Ok if there is no finding. */
    Status worst() const;

    /*! Prints what is not printed yet. */
    void finish() const;

private:
    Format format;
    QVector<Finding> findings;
};

#endif // REPORT_H
