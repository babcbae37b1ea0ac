#include <QVCore/QVCore.h>
