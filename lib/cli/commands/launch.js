'use strict';

module.exports = {
    usage: 'SPECIFIER [ARGUMENTS]',
    summary: 'launches an application, with a command line in one argument',
    operands: [1, 2],
    options: {
        folder: { type: 'string', value: 'FOLDER', text: 'the library path' },
        'no-focus': { type: 'boolean', text: 'does not ask for the focus' },
    },

    run(options, [specifier, args]) {
        const { launch } = require('../../client');
        return launch(specifier, { args, folder: options.folder, focus: !options['no-focus'] });
    },
};
