/*
 * Options of a command line: long ones, behind one dash or two, anywhere among the other arguments.
 *
 * A name may be abbreviated as long as one option alone begins so. An argument stands behind `=` or
 * in the next element. Each call gives one option and moves the arguments that are none behind
 * those seen so far, so that they stand together at the end; an element `--` ends the options.
 *
 *     static const QVOption options[] = {{"verbose", QV_OPTION_NO_ARGUMENT, 'v'},
 *                                        {"output", QV_OPTION_REQUIRES_ARGUMENT, 'o'},
 *                                        {NULL, 0, 0}};
 *     int32_t option;
 *     while ((option = QVGetOption(argc, argv, options, NULL)) != -1) {
 *         switch (option) {
 *         case 'v': verbose = 1; break;
 *         case 'o': output = QVGetOptionArgument; break;
 *         default: return 2; // a message has been printed
 *         }
 *     }
 *     for (int32_t i = QVGetOptionIndex; i < argc; ++i) {
 *         Use(argv[i]);
 *     }
 *
 * The state is the process's, in the variables below and behind them, and unguarded: parse on one
 * thread at a time, as a rule at the start of main.
 */
#ifndef QVCORE6_OPTION_H
#define QVCORE6_OPTION_H

#include <qvcore6/base.h>

/* For QVOption::hasArgument. */
#define QV_OPTION_NO_ARGUMENT 0
#define QV_OPTION_REQUIRES_ARGUMENT 1
/* `=` and a text may follow; they are dropped. Any other value means this one too. */
#define QV_OPTION_IGNORES_ARGUMENT 2

/* What an error gives: the character '?'. */
#define QV_OPTION_ERROR 63

/* One option. A table ends with a record whose name is null. */
typedef struct QVOption
{
    const char* name; /* without dashes */
    int32_t hasArgument;
    int32_t value; /* what QVGetOption gives for it; -1 is taken, and 63 looks like an error */
} QVOption;

QV_BEGIN_DECLS

/* Not 0, as at first: errors are printed on standard error. */
QV_EXPORT extern int32_t QVGetOptionError;

/*
 * Of the element of argv to look at next; after the last option that of the first argument which is
 * none. At first 1. A caller who sets 0 starts a new parse at element 1; less than 0 is taken for
 * that as well.
 */
QV_EXPORT extern int32_t QVGetOptionIndex;

/*
 * The cause of the last error: 0 for a name that is unknown or ambiguous, the option's value for an
 * argument that is missing or not allowed, the character without a table. At first 63.
 */
QV_EXPORT extern int32_t QVGetOptionOption;

/* The argument of the option just given, a part of argv; null if it has none. */
QV_EXPORT extern const char* QVGetOptionArgument;

/* Set it to anything but 0, and QVGetOptionIndex to the first element, to start a new parse. */
QV_EXPORT extern int32_t QVGetOptionReset;

/*
 * The messages, as formats of printf without a line end. A program may put others in their place
 * that take the same arguments; null prints the line end alone.
 */

/* The dashes and the whole text behind them: "Usage: unrecognized option '%s%s'". */
QV_EXPORT extern const char* QVGetOptionMsgUnrecognized;
/* The dashes, the length of the name (an int), the text: "Usage: option '%s%.*s' is ambiguous". */
QV_EXPORT extern const char* QVGetOptionMsgAmbiguous;
/* The same: "Usage: option '%s%.*s' doesn't allow an argument". */
QV_EXPORT extern const char* QVGetOptionMsgNoArgumentAllowed;
/* The dashes and the text: "Usage: option '%s%s' requires an argument". */
QV_EXPORT extern const char* QVGetOptionMsgStringRequiresArgument;
/* The character: "Usage: invalid option -- %c". */
QV_EXPORT extern const char* QVGetOptionMsgInvalid;
/* The same with POSIXLY_CORRECT set: "Usage: illegal option -- %c". */
QV_EXPORT extern const char* QVGetOptionMsgIllegal;
/* Never printed, as there are no options of one character that are known. */
QV_EXPORT extern const char* QVGetOptionMsgCharacterRequiresArgument;

/*
 * Looks for the next option. argv has argc elements and a null behind them; its order changes, its
 * texts do not. A null in front of argc ends it. options may be null: then each character behind a
 * dash is an error. longIndex, if not null, receives the record's index in the table, when there is
 * an option.
 *
 * Gives the option's value; -1 when there are no more; 63 for an error, after which the parse may
 * go on. While the environment has POSIXLY_CORRECT, the first argument that is no option ends the
 * parse and nothing is moved.
 */
QV_EXPORT int32_t QVGetOption(int32_t argc, char** argv, const QVOption* options,
                              int32_t* longIndex);

QV_END_DECLS

#endif
