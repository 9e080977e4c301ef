// The step validators of the numeric editors: Qt's range check plus a multiple of a step counted
// from 0, numbers in the C locale, and no silent correction of a text on Enter.
#include <scaledoublevalidator.h>
#include <scaleintvalidator.h>

#include <QtTest>

#include <limits>

namespace {

QValidator::State Validated(const QValidator& validator, QString text) {
    int pos = int(text.size());
    return validator.validate(text, pos);
}

} // namespace

class TestScaleValidators : public QObject {
    Q_OBJECT

private slots:
    void intValidatorStartsWithStepOneAndNoParent() {
        CScaleIntValidator validator;
        QCOMPARE(validator.Scale(), 1);
        QVERIFY(validator.parent() == nullptr);
        validator.SetScale(0);
        QCOMPARE(validator.Scale(), 1);
    }

    void intValidatorWantsAMultipleOfTheStep_data() {
        QTest::addColumn<int>("bottom");
        QTest::addColumn<int>("top");
        QTest::addColumn<int>("scale");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("state");
        const int acceptable = QValidator::Acceptable;
        const int intermediate = QValidator::Intermediate;
        QTest::newRow("7 of 0..10 step 2") << 0 << 10 << 2 << "7" << intermediate;
        QTest::newRow("8 of 0..10 step 2") << 0 << 10 << 2 << "8" << acceptable;
        QTest::newRow("12 above the top") << 0 << 10 << 2 << "12" << intermediate;
        QTest::newRow("empty") << 0 << 10 << 2 << "" << intermediate;
        // The multiple is counted from 0, not from the bottom.
        QTest::newRow("5 of 5..9 step 2") << 5 << 9 << 2 << "5" << intermediate;
        QTest::newRow("6 of 5..9 step 2") << 5 << 9 << 2 << "6" << acceptable;
        QTest::newRow("7 of 5..9 step 2") << 5 << 9 << 2 << "7" << intermediate;
        QTest::newRow("8 of 5..9 step 2") << 5 << 9 << 2 << "8" << acceptable;
        // Signed remainders.
        QTest::newRow("-1000 step 8") << -1024 << 1024 << 8 << "-1000" << acceptable;
        QTest::newRow("-1001 step 8") << -1024 << 1024 << 8 << "-1001" << intermediate;
        // An unsigned maximum of 4294967295 taken as -1: nothing in 0..-1 is acceptable.
        QTest::newRow("0 of 0..-1") << 0 << -1 << 1 << "0" << intermediate;
        QTest::newRow("6 of 0..-1") << 0 << -1 << 2 << "6" << intermediate;
        // An unsigned step of 4294967295 taken as -1; the smallest int must not trap.
        QTest::newRow("smallest int step -1")
            << std::numeric_limits<int>::min() << -1 << -1
            << QString::number(std::numeric_limits<int>::min()) << acceptable;
        // The editors write plain digits; group separators are not numbers here.
        QTest::newRow("group separator") << 0 << 10000 << 1 << "1,000" << int(QValidator::Invalid);
    }

    void intValidatorWantsAMultipleOfTheStep() {
        QFETCH(int, bottom);
        QFETCH(int, top);
        QFETCH(int, scale);
        QFETCH(QString, text);
        QFETCH(int, state);
        CScaleIntValidator validator;
        validator.setRange(bottom, top);
        validator.SetScale(scale);
        QCOMPARE(int(Validated(validator, text)), state);
    }

    void doubleValidatorStartsWithStepOneAndNoParent() {
        CScaleDoubleValidator validator;
        QCOMPARE(validator.Scale(), 1);
        QVERIFY(validator.parent() == nullptr);
    }

    void doubleValidatorWantsTwoDecimalsAndAMultipleOfTheStep_data() {
        QTest::addColumn<double>("bottom");
        QTest::addColumn<double>("top");
        QTest::addColumn<int>("scale");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("state");
        const int acceptable = QValidator::Acceptable;
        const int intermediate = QValidator::Intermediate;
        QTest::newRow("0.37 of 0..1.5") << 0.0 << 1.5 << 1 << "0.37" << acceptable;
        QTest::newRow("0.125: three decimals") << 0.0 << 1.5 << 1 << "0.125" << intermediate;
        QTest::newRow("1.6 above the top") << 0.0 << 1.5 << 1 << "1.6" << intermediate;
        QTest::newRow("1.5 the top") << 0.0 << 1.5 << 1 << "1.5" << acceptable;
        QTest::newRow("0.15 step 5 hundredths") << -1.0 << 1.0 << 5 << "0.15" << acceptable;
        QTest::newRow("0.12 step 5 hundredths") << -1.0 << 1.0 << 5 << "0.12" << intermediate;
        QTest::newRow("-0.15 step 5 hundredths") << -1.0 << 1.0 << 5 << "-0.15" << acceptable;
        QTest::newRow("letters") << 0.0 << 1.5 << 1 << "x" << int(QValidator::Invalid);
    }

    void doubleValidatorWantsTwoDecimalsAndAMultipleOfTheStep() {
        QFETCH(double, bottom);
        QFETCH(double, top);
        QFETCH(int, scale);
        QFETCH(QString, text);
        QFETCH(int, state);
        CScaleDoubleValidator validator;
        validator.setRange(bottom, top, 2);
        validator.SetScale(scale);
        QCOMPARE(int(Validated(validator, text)), state);
    }

    void doubleValidatorLeavesTextItCannotAcceptAsItIs() {
        CScaleDoubleValidator validator;
        validator.setRange(0.0, 1.5, 2);
        QString text = "0.125";
        validator.fixup(text);
        QCOMPARE(text, QString("0.125"));
    }

    void validatorsHaveNoMetaMethodsOfTheirOwn() {
        QCOMPARE(CScaleIntValidator::staticMetaObject.methodCount(),
                 QIntValidator::staticMetaObject.methodCount());
        QCOMPARE(CScaleDoubleValidator::staticMetaObject.methodCount(),
                 QDoubleValidator::staticMetaObject.methodCount());
    }
};

QTEST_GUILESS_MAIN(TestScaleValidators)
#include "tst_scalevalidators.moc"
