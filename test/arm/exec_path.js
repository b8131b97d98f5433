// Loaded before everything else in an emulated process: what runs this program here.

process.execPath = require('node:path').join(__dirname, 'node');
